#pragma once

// Writes a binary property list ("bplist00") whose top object is a dictionary of scalars and
// columns, the shape of Brimvale's scan cache records, straight to bytes.
//
// The writer sizes the whole file first (object count, ref and offset widths, every object's
// length), then writes header, objects, offset table and trailer in one pass into one buffer
// of the exact size: time and memory are linear in the data.
//
// Encoding choices, all valid for any reader of the format:
// - Integers take the smallest width the format allows: 1, 2 or 4 bytes for values below 2^8,
//   2^16 and 2^32 (these widths are unsigned), 8 bytes for the rest and for every negative value.
// - Reals are 8-byte doubles, stored bit for bit (NaN, infinities, -0.0 included).
// - A string column stores each distinct string once, every element that holds it referring to
//   the same object: real trees repeat file names a lot, and "" fills whole columns. On the
//   million-node tree of bench/bplist_bench.cpp this makes the file a quarter smaller (61 MB
//   instead of 83 MB) for about a third more writing time. Strings compare byte for byte.
//   Booleans are two shared objects, false and true.
// - Strings that are pure ASCII are written as ASCII, all others as UTF-16 big-endian (the
//   format's rule). Bytes that are not valid UTF-8 (a Linux file name can be any bytes) are
//   written as the lone surrogates U+DC80–U+DCFF (see PlistText.h), which the reader turns back
//   into the same bytes.
// - Refs and offsets take the smallest width from 1 to 8 bytes that holds the object count and
//   the offset table's position (3 bytes for typical records of a million nodes).

#include "core/persistence/bplist/StringColumn.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace brimvale {

namespace bplist {
// The value of one entry of the top-level dictionary: a scalar, or a view of a column.
using EntryValue = std::variant<std::int64_t, std::string, StringColumnView,
                                std::span<const std::uint8_t>, std::span<const std::int32_t>,
                                std::span<const std::int64_t>, std::span<const double>>;
} // namespace bplist

class BinaryPlistWriter {
public:
    struct Options {
        // Store equal strings of a column once (see the header comment). Off: one object per
        // element, which writes somewhat faster and larger files.
        bool shareEqualStrings = true;
    };

    BinaryPlistWriter() = default;
    explicit BinaryPlistWriter(Options options)
        : options_(options) {}

    // Each add function appends an entry of the top-level dictionary; entries are written in
    // the order added. Adding a key twice throws std::invalid_argument. Columns are not copied:
    // the data they view must stay alive and unchanged until write() returns.
    void addInteger(std::string_view key, std::int64_t value);
    void addString(std::string_view key, std::string_view value);
    void addStringColumn(std::string_view key, bplist::StringColumnView values);
    // Nonzero is true.
    void addBooleanColumn(std::string_view key, std::span<const std::uint8_t> values);
    void addInt32Column(std::string_view key, std::span<const std::int32_t> values);
    void addInt64Column(std::string_view key, std::span<const std::int64_t> values);
    void addRealColumn(std::string_view key, std::span<const double> values);

    // Receives the file in order, one filled piece at a time, and returns the buffer to fill next
    // (empty, or a piece handed over earlier, whose memory is then used again).
    using PieceSink = std::function<std::vector<std::uint8_t>(std::vector<std::uint8_t>&&)>;

    // The whole file. Throws std::length_error for a string column of 2^32 - 1 elements or more.
    std::vector<std::uint8_t> write() const;
    // The file in pieces of `pieceBytes` (a piece holding a long string may be longer); the last
    // one may be shorter. Sizes are planned before the first piece, so errors of the data throw
    // before the sink sees any byte. 0 means one piece of the file's size.
    void write(const PieceSink& sink, std::size_t pieceBytes) const;

private:
    struct Entry {
        std::string key;
        bplist::EntryValue value;
    };

    void add(std::string_view key, bplist::EntryValue value);

    Options options_;
    std::vector<Entry> entries_;
};

} // namespace brimvale
