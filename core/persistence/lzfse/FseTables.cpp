#include "core/persistence/lzfse/FseTables.h"

#include <bit>
#include <cassert>
#include <numeric>

namespace brimvale::lzfse {

namespace {

// k(f) = log2(N) - floor(log2 f): the number of state bits a symbol with frequency f reads at
// most, chosen so that N <= f * 2^k < 2N.
int stateBitsFor(std::uint32_t frequency, std::uint32_t states) {
    return std::countr_zero(states) - (std::bit_width(frequency) - 1);
}

// Walks the states of every symbol in table order, calling visit(symbol, j, f, k) for the j-th
// state of a symbol with frequency f.
template <typename Visit>
void forEachState(std::span<const std::uint16_t> frequencies, std::uint32_t states, Visit visit) {
    std::uint32_t state = 0;
    for (std::size_t symbol = 0; symbol < frequencies.size(); ++symbol) {
        const std::uint32_t f = frequencies[symbol];
        if (f == 0) {
            continue;
        }
        const int k = stateBitsFor(f, states);
        // States j < j0 read k bits, the rest k - 1 bits.
        const std::uint32_t j0 = ((2 * states) >> k) - f;
        for (std::uint32_t j = 0; j < f; ++j, ++state) {
            int bits;
            int delta;
            if (j < j0) {
                bits = k;
                delta = static_cast<int>(((f + j) << k) - states);
            } else {
                bits = k - 1;
                delta = static_cast<int>((j - j0) << (k - 1));
            }
            visit(state, symbol, bits, delta);
        }
    }
}

} // namespace

void normalizeFrequencies(std::span<const std::uint32_t> counts, std::uint32_t states,
                          std::span<std::uint16_t> frequencies) {
    assert(counts.size() == frequencies.size() && counts.size() < states);
    const std::uint32_t total = std::accumulate(counts.begin(), counts.end(), std::uint32_t{0});
    const std::uint32_t step = total == 0 ? 0 : (std::uint32_t{1} << 31) / total;
    const int shift = 30 - std::countr_zero(states);

    std::int32_t remaining = static_cast<std::int32_t>(states);
    std::uint32_t maxFrequency = 0;
    std::size_t maxSymbol = 0;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        // A rounded counts[i] * states / total; the product is at most 2^31.
        std::uint32_t f = (((counts[i] * step) >> shift) + 1) >> 1;
        if (f == 0 && counts[i] > 0) {
            f = 1;
        }
        if (f > maxFrequency) {
            maxFrequency = f;
            maxSymbol = i;
        }
        frequencies[i] = static_cast<std::uint16_t>(f);
        remaining -= static_cast<std::int32_t>(f);
    }

    if (-remaining < static_cast<std::int32_t>(maxFrequency >> 2)) {
        // Small correction: the most frequent symbol absorbs it.
        frequencies[maxSymbol] = static_cast<std::uint16_t>(
            static_cast<std::int32_t>(frequencies[maxSymbol]) + remaining);
        return;
    }
    // Too many states handed out: take them back, from the large frequencies first.
    std::uint32_t overrun = static_cast<std::uint32_t>(-remaining);
    for (int pass = 3; pass >= 0 && overrun > 0; --pass) {
        for (std::size_t i = 0; i < frequencies.size() && overrun > 0; ++i) {
            if (frequencies[i] > 1) {
                const std::uint32_t cut =
                    std::min<std::uint32_t>((frequencies[i] - 1u) >> pass, overrun);
                frequencies[i] = static_cast<std::uint16_t>(frequencies[i] - cut);
                overrun -= cut;
            }
        }
    }
}

std::uint32_t frequencySum(std::span<const std::uint16_t> frequencies) {
    return std::accumulate(frequencies.begin(), frequencies.end(), std::uint32_t{0});
}

void buildLiteralDecoderTable(std::span<const std::uint16_t> frequencies,
                              std::span<LiteralDecoderEntry> table) {
    const auto states = static_cast<std::uint32_t>(table.size());
    assert(frequencySum(frequencies) == states);
    forEachState(
        frequencies, states, [&](std::uint32_t state, std::size_t symbol, int bits, int delta) {
            table[state] = {static_cast<std::uint8_t>(bits), static_cast<std::uint8_t>(symbol),
                            static_cast<std::int16_t>(delta)};
        });
}

void buildValueDecoderTable(std::span<const std::uint16_t> frequencies,
                            std::span<const std::uint8_t> extraBits,
                            std::span<const std::int32_t> bases,
                            std::span<ValueDecoderEntry> table) {
    const auto states = static_cast<std::uint32_t>(table.size());
    assert(frequencySum(frequencies) == states);
    forEachState(
        frequencies, states, [&](std::uint32_t state, std::size_t symbol, int bits, int delta) {
            table[state] = {static_cast<std::uint8_t>(bits + extraBits[symbol]), extraBits[symbol],
                            static_cast<std::int16_t>(delta), bases[symbol]};
        });
}

void buildEncoderTable(std::span<const std::uint16_t> frequencies, std::uint32_t states,
                       std::span<FseEncoderEntry> table) {
    int start = 0;
    for (std::size_t symbol = 0; symbol < frequencies.size(); ++symbol) {
        const int f = frequencies[symbol];
        if (f == 0) {
            continue;
        }
        const int k = stateBitsFor(static_cast<std::uint32_t>(f), states);
        const int n = static_cast<int>(states);
        table[symbol] = {static_cast<std::int16_t>((f << k) - n), static_cast<std::int16_t>(k),
                         static_cast<std::int16_t>(start - f + (n >> k)),
                         static_cast<std::int16_t>(k > 0 ? start - f + (n >> (k - 1)) : 0)};
        start += f;
    }
}

} // namespace brimvale::lzfse
