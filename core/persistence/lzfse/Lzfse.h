#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// LZFSE compression of scan caches. Streams written here are standard LZFSE streams (LZFSE v2,
// LZVN and raw blocks); the decoder reads every block kind an LZFSE stream may contain.
// Both functions are pure: they may be called from any thread at the same time. Inputs of
// 2 MiB and more are compressed in 1 MiB pieces on up to four threads (LzfseStreamCompressor).

namespace brimvale {

// Compresses `input` into a complete LZFSE stream (blocks followed by the end-of-stream marker).
// The stream is at most 12 bytes longer than the input (8 more per GiB beyond the first), as
// data that does not compress is stored in raw blocks.
std::vector<std::uint8_t> lzfseCompress(std::span<const std::uint8_t> input);

// Decompresses a complete LZFSE stream. Throws CorruptDataError when the stream is empty,
// truncated or malformed, or when it would produce more than `outputLimit` bytes. Bytes after
// the end-of-stream marker are ignored.
std::vector<std::uint8_t> lzfseDecompress(std::span<const std::uint8_t> input,
                                          std::size_t outputLimit);

} // namespace brimvale
