#pragma once

#include <cstdint>
#include <span>
#include <vector>

// The LZFSE encoder: a hash-table match finder with one pending match (lazy matching), whose
// matches become L/M/D triples, grouped into v2 blocks. Follows the reference encoder's
// parameters, so its compression ratio is the reference's.

namespace brimvale::lzfse {

// Appends the blocks encoding `input` (up to 1 GiB; no end-of-stream marker) to `out`. A block
// that would be larger than its raw bytes is written as a raw block instead.
void appendLzfseBlocks(std::span<const std::uint8_t> input, std::vector<std::uint8_t>& out);

} // namespace brimvale::lzfse
