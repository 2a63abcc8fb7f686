#pragma once

// A generic property list value tree, decoded from a BinaryPlistReader: for tools, tests and
// fuzzing. The cache decoder reads columns directly instead (BinaryPlistColumns.h).
//
// Shared objects are decoded as copies; cycles are rejected, nesting is bounded by
// PlistReadLimits::maxDepth and the size of the tree by PlistReadLimits::maxDecodedBytes, all
// with CorruptDataError. Dictionary keys must be strings; entries keep their file order.

#include "core/persistence/bplist/BinaryPlistReader.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace brimvale {

struct PlistDate {
    double secondsSince2001 = 0; // since 2001-01-01 00:00:00 UTC
    friend bool operator==(const PlistDate&, const PlistDate&) = default;
};

struct PlistUid {
    std::uint64_t value = 0;
    friend bool operator==(const PlistUid&, const PlistUid&) = default;
};

class PlistValue;
using PlistData = std::vector<std::uint8_t>;
using PlistArray = std::vector<PlistValue>;
struct PlistSet {
    std::vector<PlistValue> elements;
    friend bool operator==(const PlistSet&, const PlistSet&) = default;
};
using PlistDictionary = std::vector<std::pair<std::string, PlistValue>>;

class PlistValue {
public:
    // Integers above INT64_MAX are held as std::uint64_t, all others as std::int64_t.
    using Storage =
        std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, PlistDate,
                     PlistData, std::string, PlistUid, PlistArray, PlistSet, PlistDictionary>;

    PlistValue() = default;
    template <class T>
    requires std::is_constructible_v<Storage, T&&> &&
        (!std::is_same_v<std::remove_cvref_t<T>, PlistValue>)
            PlistValue(T&& value) // NOLINT(google-explicit-constructor): a value is its contents
        : storage_(std::forward<T>(value)) {}

    const Storage& storage() const { return storage_; }
    Storage& storage() { return storage_; }

    template <class T> bool is() const { return std::holds_alternative<T>(storage_); }
    // Throws std::bad_variant_access when the value holds another type.
    template <class T> const T& as() const { return std::get<T>(storage_); }

    // The value of the first entry named `key` of a dictionary; nullptr when there is none or
    // this is not a dictionary.
    const PlistValue* find(std::string_view key) const;

    friend bool operator==(const PlistValue&, const PlistValue&) = default;

private:
    Storage storage_;
};

// Decodes the object `ref` and everything it contains.
PlistValue decodePlistValue(const BinaryPlistReader& reader, PlistRef ref);
// Decodes a whole file from its top object.
PlistValue readPlistValue(std::span<const std::uint8_t> bytes, PlistReadLimits limits = {});

} // namespace brimvale
