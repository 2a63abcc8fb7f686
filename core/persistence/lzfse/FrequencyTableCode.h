#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// The variable-length code of the frequency tables in an LZFSE v2 block header: each value
// (0 ... 1047) is a prefix code of 2, 3, 5, 8 or 14 bits in an LSB-first bit string.

namespace brimvale::lzfse {

// Appends the codes of `values` (each <= 1047), padding the last byte with zero bits.
void appendFrequencyCodes(std::span<const std::uint16_t> values, std::vector<std::uint8_t>& out);

// Decodes `values.size()` codes from `bytes`. Fails (returns false) if a code runs past the end
// of `bytes` or if `bytes` is longer than the codes plus the padding of their last byte.
bool decodeFrequencyCodes(std::span<const std::uint8_t> bytes, std::span<std::uint16_t> values);

} // namespace brimvale::lzfse
