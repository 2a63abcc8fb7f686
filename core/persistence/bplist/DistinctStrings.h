#pragma once

// Groups equal strings of a column, so a writer can store each distinct string once and refer
// to it from every element that holds it.

#include "core/persistence/bplist/StringColumn.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace brimvale::bplist {

struct DistinctStrings {
    // For each element of the column, the id of its string: ids count up from 0 in order of
    // first occurrence.
    std::vector<std::uint32_t> idOfElement;
    // For each id, the index of the first element holding that string.
    std::vector<std::uint32_t> firstElement;
};

// Compares strings byte for byte. Throws std::length_error for columns of 2^32 - 1 elements or
// more.
DistinctStrings findDistinctStrings(const StringColumnView& column);

} // namespace brimvale::bplist
