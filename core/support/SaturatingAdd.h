#pragma once

#include <cstdint>
#include <limits>

namespace brimvale {

// a + b held to the 64-bit range. Sizes come from outside (a server may report files of 2^62
// bytes, sparse files may claim more than a disk holds), so a sum past the largest size shows
// as the largest size instead of stopping the program or wrapping to a negative size.
constexpr std::int64_t saturatingAdd(std::int64_t a, std::int64_t b) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum)) {
        return b > 0 ? std::numeric_limits<std::int64_t>::max()
                     : std::numeric_limits<std::int64_t>::min();
    }
    return sum;
}

} // namespace brimvale
