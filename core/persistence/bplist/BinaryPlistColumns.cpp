#include "core/persistence/bplist/BinaryPlistColumns.h"

#include "core/persistence/bplist/LargeAllocation.h"
#include "core/support/CorruptDataError.h"

#include <limits>

namespace brimvale {
namespace {

[[noreturn]] void failBudget(PlistRef array, const BinaryPlistReader& reader) {
    throw CorruptDataError("binary property list: array " + std::to_string(array) +
                           " decodes to more than " +
                           std::to_string(reader.limits().maxDecodedBytes) + " bytes");
}

// Reads the refs of `array` and checks that `elementSize` bytes per element fit the budget.
PlistRefs columnRefs(const BinaryPlistReader& reader, PlistRef array, std::size_t elementSize) {
    const PlistRefs refs = reader.elements(array);
    if (refs.size() > reader.limits().maxDecodedBytes / elementSize) {
        failBudget(array, reader);
    }
    return refs;
}

template <class T, class Read>
std::vector<T> readColumn(const BinaryPlistReader& reader, PlistRef array, Read&& read) {
    const PlistRefs refs = columnRefs(reader, array, sizeof(T));
    std::vector<T> column;
    bplist::reserveLarge(column, refs.size());
    for (std::size_t i = 0; i < refs.size(); ++i) {
        column.push_back(read(refs[i]));
    }
    return column;
}

} // namespace

std::vector<std::string> readStringColumn(const BinaryPlistReader& reader, PlistRef array) {
    const PlistRefs refs = columnRefs(reader, array, sizeof(std::string));
    const std::uint64_t budget = reader.limits().maxDecodedBytes;
    std::uint64_t decoded = refs.size() * sizeof(std::string);
    std::vector<std::string> column;
    bplist::reserveLarge(column, refs.size());
    for (std::size_t i = 0; i < refs.size(); ++i) {
        const PlistRef ref = refs[i];
        // A run of refs to one shared string ("" in sparse columns) is decoded once.
        if (i > 0 && ref == refs[i - 1]) {
            column.push_back(column.back());
        } else {
            column.push_back(reader.string(ref));
        }
        decoded += column.back().size();
        if (decoded > budget) {
            failBudget(array, reader);
        }
    }
    return column;
}

StringColumn readPackedStringColumn(const BinaryPlistReader& reader, PlistRef array) {
    const PlistRefs refs = columnRefs(reader, array, sizeof(std::size_t));
    const std::uint64_t budget = reader.limits().maxDecodedBytes;
    std::uint64_t decoded = refs.size() * sizeof(std::size_t);
    StringColumn column;
    std::string previous;
    for (std::size_t i = 0; i < refs.size(); ++i) {
        const PlistRef ref = refs[i];
        // A run of refs to one shared string ("" in sparse columns) is decoded once.
        if (i == 0 || ref != refs[i - 1]) {
            previous = reader.string(ref);
        }
        column.push_back(previous);
        decoded += previous.size();
        if (decoded > budget) {
            failBudget(array, reader);
        }
    }
    return column;
}

std::vector<std::int64_t> readInt64Column(const BinaryPlistReader& reader, PlistRef array) {
    return readColumn<std::int64_t>(reader, array,
                                    [&](PlistRef ref) { return reader.integer(ref); });
}

std::vector<std::int32_t> readInt32Column(const BinaryPlistReader& reader, PlistRef array) {
    return readColumn<std::int32_t>(reader, array, [&](PlistRef ref) {
        const std::int64_t value = reader.integer(ref);
        if (value < std::numeric_limits<std::int32_t>::min() ||
            value > std::numeric_limits<std::int32_t>::max()) {
            throw CorruptDataError("binary property list: object " + std::to_string(ref) +
                                   ": integer " + std::to_string(value) +
                                   " exceeds the signed 32-bit range");
        }
        return static_cast<std::int32_t>(value);
    });
}

std::vector<std::uint8_t> readBooleanColumn(const BinaryPlistReader& reader, PlistRef array) {
    return readColumn<std::uint8_t>(reader, array, [&](PlistRef ref) {
        return static_cast<std::uint8_t>(reader.boolean(ref) ? 1 : 0);
    });
}

std::vector<double> readRealColumn(const BinaryPlistReader& reader, PlistRef array) {
    return readColumn<double>(reader, array, [&](PlistRef ref) { return reader.real(ref); });
}

} // namespace brimvale
