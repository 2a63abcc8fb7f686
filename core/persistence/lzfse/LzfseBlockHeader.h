#pragma once

#include "core/persistence/lzfse/LzfseFormat.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

// The header of an LZFSE block, in its two encodings: v1 (772 bytes, plain 16-bit
// frequencies) and v2 (packed fields and variable-length frequency codes).

namespace brimvale::lzfse {

struct LzfseBlockHeader {
    std::uint32_t rawSize = 0;      // bytes the block outputs
    std::uint32_t headerSize = 0;   // bytes of the header; the literal payload follows
    std::uint32_t literalCount = 0; // literal symbols coded (padding included)
    std::uint32_t matchCount = 0;   // L/M/D triples
    std::uint32_t literalPayloadSize = 0;
    std::uint32_t lmdPayloadSize = 0;
    std::int32_t literalBits = 0; // padding value of the literal stream
    std::int32_t lmdBits = 0;     // padding value of the L/M/D stream
    std::array<std::uint32_t, 4> literalStates{};
    std::uint32_t lState = 0;
    std::uint32_t mState = 0;
    std::uint32_t dState = 0;
    std::array<std::uint16_t, kLSymbols> lFrequencies{};
    std::array<std::uint16_t, kMSymbols> mFrequencies{};
    std::array<std::uint16_t, kDSymbols> dFrequencies{};
    std::array<std::uint16_t, kLiteralSymbols> literalFrequencies{};
};

// Parses the header of the v1 or v2 block starting at `block` (its magic included) and checks
// every field against the format's limits. Throws CorruptDataError naming `blockOffset`, the
// block's position in the stream. The payloads are not looked at.
LzfseBlockHeader parseLzfseBlockHeader(std::span<const std::uint8_t> block,
                                       std::size_t blockOffset);

// Where an LZFSE block ends and how much it can output at most, read from the size and count
// fields of its header (v1 or v2) without checking anything else.
struct LzfseBlockExtent {
    std::uint64_t streamSize; // header and payloads
    std::uint64_t maxOutput;  // the declared size, or less if the counts cannot produce it
};
std::optional<LzfseBlockExtent> peekLzfseBlockExtent(std::span<const std::uint8_t> block);

// Appends a v2 header: 32 bytes of packed fields, left zero, and the frequency codes of
// `header`. Returns the header's size. storeLzfseV2Fields() fills in the fields once the
// payloads are known.
std::uint32_t appendLzfseV2Header(const LzfseBlockHeader& header, std::vector<std::uint8_t>& out);

// Writes the magic and the packed fields of `header` (headerSize included) at `block`.
void storeLzfseV2Fields(const LzfseBlockHeader& header, std::uint8_t* block);

} // namespace brimvale::lzfse
