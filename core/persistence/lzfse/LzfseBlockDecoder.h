#pragma once

#include "core/persistence/lzfse/DecodeOutput.h"
#include "core/persistence/lzfse/FseTables.h"
#include "core/persistence/lzfse/LzfseBlockHeader.h"
#include "core/persistence/lzfse/LzfseFormat.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

// Decodes LZFSE blocks (v1 and v2 headers): the literal stream into a buffer, then the L/M/D
// triples that interleave those literals with matches into the output. One decoder serves all
// blocks of a stream; it holds the tables and the literal buffer (about 50 KB), so keep it on
// the heap. Not thread-safe; use one per stream.

namespace brimvale::lzfse {

class LzfseBlockDecoder {
public:
    // Decodes the block at `block` (the rest of the stream, starting with the block's magic) and
    // appends its output. Returns the block's size in the stream. Throws CorruptDataError.
    std::size_t decode(std::span<const std::uint8_t> block, std::size_t blockOffset,
                       DecodeOutput& output);

private:
    void decodeLiterals(const LzfseBlockHeader& header, const std::uint8_t* payload,
                        std::size_t blockOffset);
    void decodeTriples(const LzfseBlockHeader& header, const std::uint8_t* payload,
                       std::size_t blockOffset, DecodeOutput& output);

    std::array<LiteralDecoderEntry, kLiteralStates> literalTable_;
    std::array<ValueDecoderEntry, kLStates> lTable_;
    std::array<ValueDecoderEntry, kMStates> mTable_;
    std::array<ValueDecoderEntry, kDStates> dTable_;
    // Decoded literals; the slack lets copies read whole 16-byte words.
    std::array<std::uint8_t, kMaxLiteralCount + 16> literals_;
};

} // namespace brimvale::lzfse
