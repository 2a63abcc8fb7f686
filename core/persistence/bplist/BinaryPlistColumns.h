#pragma once

// Whole-array reads for columnar records: each function reads the array object `array` of a
// BinaryPlistReader into a vector, element i of the array becoming element i of the vector.
//
// They throw CorruptDataError when `array` is not an array, when an element is of another kind
// or does not fit the element type (an integer beyond int32 for readInt32Column), and when the
// result would exceed the reader's limits().maxDecodedBytes.

#include "core/persistence/bplist/BinaryPlistReader.h"
#include "core/persistence/bplist/StringColumn.h"

#include <cstdint>
#include <string>
#include <vector>

namespace brimvale {

// Strings as UTF-8 (see BinaryPlistReader.h for malformed text).
std::vector<std::string> readStringColumn(const BinaryPlistReader& reader, PlistRef array);
// The same, packed into one buffer.
StringColumn readPackedStringColumn(const BinaryPlistReader& reader, PlistRef array);
std::vector<std::int64_t> readInt64Column(const BinaryPlistReader& reader, PlistRef array);
std::vector<std::int32_t> readInt32Column(const BinaryPlistReader& reader, PlistRef array);
// Booleans as 0 and 1.
std::vector<std::uint8_t> readBooleanColumn(const BinaryPlistReader& reader, PlistRef array);
// Reals of 4 or 8 bytes; integers are not accepted.
std::vector<double> readRealColumn(const BinaryPlistReader& reader, PlistRef array);

} // namespace brimvale
