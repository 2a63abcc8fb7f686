#pragma once

// Typed, random access to the objects of a binary property list ("bplist00", version 1.0),
// without building an object tree: the cache decoder walks the top-level dictionary and reads
// each column straight into a vector (see BinaryPlistColumns.h); PlistValue.h builds a generic
// tree on top of this for tools and tests.
//
// Accepted: every object type of the format (null and fill, booleans, integers of 1, 2, 4, 8
// and 16 bytes, reals of 4 and 8 bytes, dates, data, ASCII and UTF-16 strings, uids, arrays,
// sets, dictionaries), any ref and offset width from 1 to 8 bytes, objects shared by many refs.
//
// Hostile input is expected: the constructor checks the header, the trailer and the placement of
// the offset table; every access checks its ref, the object's offset, marker, count and length
// against the file before reading, and throws CorruptDataError saying what was wrong and where.
// Nothing is allocated in proportion to a count the file declares before that count has been
// checked against the bytes present. Walking nested objects is the caller's business: the
// accessors never recurse, so a cyclic file (an array containing itself) only matters to
// recursive walkers such as decodePlistValue, which detects cycles.
//
// Text: strings come back as name bytes (see PlistText.h). UTF-16 strings are converted with
// surrogate pairs combined, U+DC80–U+DCFF as the bytes they stand for (how Brimvale writes names
// that are not valid UTF-8) and any other lone surrogate as U+FFFD, so a cache whose file names
// came through an imperfect converter still loads. ASCII strings holding bytes >= 0x80 (some
// writers store UTF-8 there) come back byte for byte.
//
// Integers: the format stores signed integers of up to 128 bits (1-, 2- and 4-byte integers are
// unsigned, 8- and 16-byte ones two's complement). This reader accepts values from INT64_MIN to
// UINT64_MAX and rejects wider 16-byte values.
//
// A reader does not own the bytes: they must stay alive and unchanged while it is used. All
// member functions are const and may be called from several threads at once.

#include "core/persistence/bplist/BinaryPlistFormat.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace brimvale {

// An object's index in the file's offset table.
using PlistRef = std::uint64_t;

enum class PlistKind : std::uint8_t {
    Null, // null and fill objects
    Boolean,
    Integer,
    Real,
    Date,
    Data,
    String,
    Uid,
    Array,
    Set,
    Dictionary,
};

// "integer", "string", ...: for messages.
std::string_view plistKindName(PlistKind kind);

// Bounds on what one decoding call may cost. Shared objects let a small file stand for a far
// larger decoded result (one long string referenced a million times), so the output is bounded
// by itself, not by the file size.
struct PlistReadLimits {
    // Deepest nesting of arrays, sets and dictionaries that decodePlistValue follows.
    std::size_t maxDepth = 256;
    // Bytes one call of decodePlistValue or of a column reader may produce, counted as the
    // element objects (std::string, PlistValue, ...) plus the text and data they hold.
    std::uint64_t maxDecodedBytes = std::uint64_t{1} << 30;
};

// The refs stored in an array, set or dictionary object: a view into the file. The refs
// themselves are checked when used (every accessor of BinaryPlistReader checks its ref).
class PlistRefs {
public:
    PlistRefs() = default;

    std::size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    // `index` < size().
    PlistRef operator[](std::size_t index) const {
        return bplist::loadBigEndian(data_ + index * width_, width_);
    }

private:
    friend class BinaryPlistReader;
    PlistRefs(const std::uint8_t* data, std::size_t count, unsigned width)
        : data_(data)
        , count_(count)
        , width_(width) {}

    const std::uint8_t* data_ = nullptr;
    std::size_t count_ = 0;
    unsigned width_ = 1;
};

// A dictionary's entries: keys[i] maps to values[i], in file order.
struct PlistDictionaryRefs {
    PlistRefs keys;
    PlistRefs values;
};

class BinaryPlistReader {
public:
    // Checks the header, the trailer and that the offset table lies between the objects and
    // the trailer. Throws CorruptDataError.
    explicit BinaryPlistReader(std::span<const std::uint8_t> bytes, PlistReadLimits limits = {});

    std::uint64_t objectCount() const { return objectCount_; }
    PlistRef topObject() const { return topObject_; }
    const PlistReadLimits& limits() const { return limits_; }

    // Every accessor below throws CorruptDataError when `ref` is out of range, when the object
    // is malformed or runs past the object area, or when it is not of the kind asked for.
    PlistKind kind(PlistRef ref) const;

    bool boolean(PlistRef ref) const;
    // Throws also when the value is above INT64_MAX.
    std::int64_t integer(PlistRef ref) const;
    // Throws also when the value is negative.
    std::uint64_t unsignedInteger(PlistRef ref) const;
    // False for an integer above INT64_MAX (read it with unsignedInteger).
    bool integerFitsInt64(PlistRef ref) const;
    double real(PlistRef ref) const;
    // Seconds since 2001-01-01 00:00:00 UTC.
    double date(PlistRef ref) const;
    // A view into the file.
    std::span<const std::uint8_t> data(PlistRef ref) const;
    std::uint64_t uid(PlistRef ref) const;
    // The string as bytes (see the header comment for text that is not UTF-8).
    std::string string(PlistRef ref) const;
    void appendString(PlistRef ref, std::string& out) const;
    // Whether the object is a string equal to `utf8`; false for other kinds.
    bool stringEquals(PlistRef ref, std::string_view utf8) const;

    // Elements of an array or a set.
    PlistRefs elements(PlistRef ref) const;
    PlistDictionaryRefs dictionary(PlistRef ref) const;
    // The value of the first entry whose key is the string `key` (keys of other kinds are
    // skipped); nullopt when there is none.
    std::optional<PlistRef> find(PlistRef dictionary, std::string_view key) const;
    // As find, but a missing key throws CorruptDataError naming it.
    PlistRef at(PlistRef dictionary, std::string_view key) const;

private:
    struct Payload {
        std::size_t start; // first byte after the marker and the count
        std::uint64_t count;
    };
    struct IntegerBits {
        std::uint64_t bits; // two's complement, or the unsigned value when aboveInt64
        bool aboveInt64;
    };

    std::size_t offsetOf(PlistRef ref) const;
    Payload counted(PlistRef ref, std::size_t offset, unsigned unitSize) const;
    IntegerBits integerBits(PlistRef ref) const;
    // Start of `ref`'s payload of `size` bytes, for fixed-size objects.
    std::size_t fixedPayload(PlistRef ref, std::size_t offset, std::size_t size) const;
    [[noreturn]] void fail(PlistRef ref, std::string_view what) const;
    [[noreturn]] void wrongKind(PlistRef ref, std::string_view expected) const;

    const std::uint8_t* bytes_ = nullptr;
    std::size_t objectsEnd_ = 0; // offset of the offset table: objects lie before it
    std::size_t offsetTable_ = 0;
    unsigned offsetSize_ = 1;
    unsigned refSize_ = 1;
    std::uint64_t objectCount_ = 0;
    PlistRef topObject_ = 0;
    PlistReadLimits limits_;
};

} // namespace brimvale
