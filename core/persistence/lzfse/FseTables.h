#pragma once

#include <cstdint>
#include <span>

// Finite-state-entropy tables: frequency normalisation, and the decoder and encoder tables
// derived from a list of normalised frequencies. A table of N states (a power of two) gives each
// symbol s with frequency f[s] > 0 a contiguous run of f[s] states, in increasing symbol order.

namespace brimvale::lzfse {

// Scales occurrence counts to frequencies that sum to exactly `states`, every occurring symbol
// getting at least 1. Uses the same rounding as the reference encoder, so equal input gives
// equal tables. `frequencies` has the size of `counts`.
void normalizeFrequencies(std::span<const std::uint32_t> counts, std::uint32_t states,
                          std::span<std::uint16_t> frequencies);

// Sum of a frequency list (at most 360 entries of 16 bits, so no overflow).
std::uint32_t frequencySum(std::span<const std::uint16_t> frequencies);

// Decoder entry of the literal alphabet: the state's symbol, and how to reach the next state
// (read `bits` bits b, next state = delta + b).
struct LiteralDecoderEntry {
    std::uint8_t bits;
    std::uint8_t symbol;
    std::int16_t delta;
};

// Decoder entry of the L, M and D alphabets: read `totalBits` bits X at once; the next state is
// delta + (X >> extraBits) and the value is base + (X mod 2^extraBits).
struct ValueDecoderEntry {
    std::uint8_t totalBits;
    std::uint8_t extraBits;
    std::int16_t delta;
    std::int32_t base;
};

// Encoder entry of one symbol: from state S, write k bits and continue at delta0 + (S >> k) if
// S >= threshold, else write k - 1 bits and continue at delta1 + (S >> (k - 1)).
struct FseEncoderEntry {
    std::int16_t threshold;
    std::int16_t k;
    std::int16_t delta0;
    std::int16_t delta1;
};

// The frequencies must sum to exactly `table.size()` (the number of states, a power of two).
void buildLiteralDecoderTable(std::span<const std::uint16_t> frequencies,
                              std::span<LiteralDecoderEntry> table);
void buildValueDecoderTable(std::span<const std::uint16_t> frequencies,
                            std::span<const std::uint8_t> extraBits,
                            std::span<const std::int32_t> bases,
                            std::span<ValueDecoderEntry> table);

// `table` has one entry per symbol; entries of symbols with frequency 0 are left unspecified.
void buildEncoderTable(std::span<const std::uint16_t> frequencies, std::uint32_t states,
                       std::span<FseEncoderEntry> table);

// Writes symbol `symbol` from encoder state `state`: returns the bits to emit and their count in
// `bits`/`bitCount`, and updates `state`.
inline void fseEncode(std::uint32_t& state, const FseEncoderEntry& entry, std::uint32_t& bits,
                      unsigned& bitCount) {
    const int n = static_cast<int>(state) >= entry.threshold ? entry.k : entry.k - 1;
    const int delta = static_cast<int>(state) >= entry.threshold ? entry.delta0 : entry.delta1;
    bitCount = static_cast<unsigned>(n);
    bits = state & ((1u << n) - 1);
    state = static_cast<std::uint32_t>(delta + static_cast<int>(state >> n));
}

} // namespace brimvale::lzfse
