#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

// Constants of the LZFSE stream format shared by the encoders and decoders: block magics, block
// limits, and the symbol alphabets of literal lengths (L), match lengths (M) and distances (D).

namespace brimvale::lzfse {

inline constexpr std::uint32_t kEndOfStreamMagic = 0x24787662;  // "bvx$"
inline constexpr std::uint32_t kRawBlockMagic = 0x2D787662;     // "bvx-"
inline constexpr std::uint32_t kLzfseV1BlockMagic = 0x31787662; // "bvx1"
inline constexpr std::uint32_t kLzfseV2BlockMagic = 0x32787662; // "bvx2"
inline constexpr std::uint32_t kLzvnBlockMagic = 0x6E787662;    // "bvxn"

inline constexpr std::size_t kRawBlockHeaderSize = 8;
inline constexpr std::size_t kLzvnBlockHeaderSize = 12;
inline constexpr std::size_t kLzfseV1HeaderSize = 772;
inline constexpr std::size_t kLzfseV2FixedHeaderSize = 32;

// Per-block limits a decoder enforces.
inline constexpr std::uint32_t kMaxLiteralCount = 40000;
inline constexpr std::uint32_t kMaxMatchCount = 10000;

// Alphabet sizes and FSE table sizes (number of states).
inline constexpr std::size_t kLiteralSymbols = 256;
inline constexpr std::size_t kLSymbols = 20;
inline constexpr std::size_t kMSymbols = 20;
inline constexpr std::size_t kDSymbols = 64;
inline constexpr std::uint32_t kLiteralStates = 1024;
inline constexpr std::uint32_t kLStates = 64;
inline constexpr std::uint32_t kMStates = 64;
inline constexpr std::uint32_t kDStates = 256;

// Largest values one triple can carry.
inline constexpr std::uint32_t kMaxLValue = 315;
inline constexpr std::uint32_t kMaxMValue = 2359;
inline constexpr std::uint32_t kMaxDValue = 262139;

// Most bytes an LZFSE block can output: all its literals, and the longest match per triple.
inline constexpr std::uint64_t maxLzfseBlockOutput(std::uint32_t literalCount,
                                                   std::uint32_t matchCount) {
    return literalCount + std::uint64_t{kMaxMValue} * matchCount;
}

// Most bytes an LZVN block can output per payload byte: a large-match opcode makes 271 bytes
// of 2.
inline constexpr std::uint64_t kLzvnMaxExpansion = 136;

inline constexpr std::array<std::uint8_t, kLSymbols> kLExtraBits = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                                    0, 0, 0, 0, 0, 0, 2, 3, 5, 8};
inline constexpr std::array<std::int32_t, kLSymbols> kLBase = {
    0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 20, 28, 60};
inline constexpr std::array<std::uint8_t, kMSymbols> kMExtraBits = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                                    0, 0, 0, 0, 0, 0, 3, 5, 8, 11};
inline constexpr std::array<std::int32_t, kMSymbols> kMBase = {
    0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 24, 56, 312};

// D symbols come in groups of four sharing an extra-bit count: symbol s has s / 4 extra bits,
// and the bases follow one another without gaps.
inline constexpr std::array<std::uint8_t, kDSymbols> kDExtraBits = [] {
    std::array<std::uint8_t, kDSymbols> bits{};
    for (std::size_t s = 0; s < kDSymbols; ++s) {
        bits[s] = static_cast<std::uint8_t>(s / 4);
    }
    return bits;
}();
inline constexpr std::array<std::int32_t, kDSymbols> kDBase = [] {
    std::array<std::int32_t, kDSymbols> base{};
    for (std::size_t s = 1; s < kDSymbols; ++s) {
        base[s] = base[s - 1] + (std::int32_t{1} << kDExtraBits[s - 1]);
    }
    return base;
}();
static_assert(kDBase[63] + (1 << kDExtraBits[63]) - 1 == static_cast<std::int32_t>(kMaxDValue));

// Symbol of a D value (0 ... kMaxDValue): group q is the largest with 4 * (2^q - 1) <= d, and
// the symbol's base within the group steps by 2^q.
inline std::uint32_t dSymbolOf(std::uint32_t d) {
    const auto group = static_cast<std::uint32_t>(std::bit_width(d / 4 + 1)) - 1;
    const std::uint32_t groupBase = 4 * ((1u << group) - 1);
    return 4 * group + ((d - groupBase) >> group);
}

inline std::uint32_t lSymbolOf(std::uint32_t l) {
    if (l < 16) {
        return l;
    }
    return l < 20 ? 16 : l < 28 ? 17 : l < 60 ? 18 : 19;
}

inline std::uint32_t mSymbolOf(std::uint32_t m) {
    if (m < 16) {
        return m;
    }
    return m < 24 ? 16 : m < 56 ? 17 : m < 312 ? 18 : 19;
}

} // namespace brimvale::lzfse
