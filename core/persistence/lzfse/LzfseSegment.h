#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace brimvale::lzfse {

// Appends the blocks of one independently compressed piece of a stream (up to 1 GiB) to `out`:
// LZFSE blocks, or one LZVN or raw block when the piece is too small or does not compress. No
// block refers to bytes outside the piece, so pieces compressed apart may follow each other.
void appendCompressedSegment(std::span<const std::uint8_t> segment, std::vector<std::uint8_t>& out);

} // namespace brimvale::lzfse
