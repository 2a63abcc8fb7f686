#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// Encodes LZFSE v2 blocks from the literals and L/M/D triples the match finder produced.

namespace brimvale::lzfse {

struct LzfseTriple {
    std::uint32_t literalLength; // L: literals before the match, <= 315
    std::uint32_t matchLength;   // M: <= 2359
    std::uint32_t distance;      // D: 1 ... 262139
};

// Keeps scratch space between blocks; use one per encoding thread.
class LzfseBlockEncoder {
public:
    // Appends a block. `literals` holds the block's literal bytes in its first `literalCount`
    // bytes and has room for 3 more (padding to a multiple of four is written there).
    // Limits: literalCount <= 39996, triples.size() <= 10000.
    void append(std::span<std::uint8_t> literals, std::size_t literalCount,
                std::span<const LzfseTriple> triples, std::vector<std::uint8_t>& out);

    // Symbols and extra-bit values of one triple, D already replaced by 0 where it repeats.
    struct TripleCode {
        std::uint8_t lSymbol;
        std::uint8_t mSymbol;
        std::uint8_t dSymbol;
        std::uint32_t lExtra;
        std::uint32_t mExtra;
        std::uint32_t dExtra;
    };

private:
    std::vector<TripleCode> codes_;
};

} // namespace brimvale::lzfse
