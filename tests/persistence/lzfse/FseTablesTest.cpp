// The entropy-coding building blocks, checked against worked examples of the format and
// against the invariants a decoder relies on.

#include "core/persistence/lzfse/FseTables.h"

#include "core/persistence/lzfse/FrequencyTableCode.h"
#include "core/persistence/lzfse/FseBitStream.h"
#include "core/persistence/lzfse/LzfseFormat.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <vector>

namespace brimvale::lzfse {
namespace {

// The format's small example: N = 8 states, frequencies 3, 0, 1, 4.
constexpr std::array<std::uint16_t, 4> kExampleFrequencies = {3, 0, 1, 4};

TEST(FseTablesTest, SmallTableMatchesTheWorkedExample) {
    std::array<LiteralDecoderEntry, 8> decoder{};
    buildLiteralDecoderTable(kExampleFrequencies, decoder);
    const std::array<LiteralDecoderEntry, 8> expectedDecoder = {
        {{2, 0, 4}, {1, 0, 0}, {1, 0, 2}, {3, 2, 0}, {1, 3, 0}, {1, 3, 2}, {1, 3, 4}, {1, 3, 6}}};
    for (std::size_t state = 0; state < 8; ++state) {
        SCOPED_TRACE(state);
        EXPECT_EQ(decoder[state].bits, expectedDecoder[state].bits);
        EXPECT_EQ(decoder[state].symbol, expectedDecoder[state].symbol);
        EXPECT_EQ(decoder[state].delta, expectedDecoder[state].delta);
    }

    std::array<FseEncoderEntry, 4> encoder{};
    buildEncoderTable(kExampleFrequencies, 8, encoder);
    EXPECT_EQ(encoder[0].k, 2);
    EXPECT_EQ(encoder[0].threshold, 4);
    EXPECT_EQ(encoder[0].delta0, -1);
    EXPECT_EQ(encoder[0].delta1, 1);
    EXPECT_EQ(encoder[2].k, 3);
    EXPECT_EQ(encoder[2].threshold, 0);
    EXPECT_EQ(encoder[2].delta0, 3);
    EXPECT_EQ(encoder[3].k, 1);
    EXPECT_EQ(encoder[3].threshold, 0);
    EXPECT_EQ(encoder[3].delta0, 4);

    // Encoding 0, 3, 3, 2, 0, 3 backward from state 0 gives bytes C0 02 with 6 padding bits
    // and ends in state 0; decoding from there gives the sequence forward.
    const std::array<std::uint8_t, 6> symbols = {0, 3, 3, 2, 0, 3};
    std::array<std::uint8_t, 16> bytes{};
    FseBitWriter writer(bytes.data());
    std::uint32_t state = 0;
    for (std::size_t i = symbols.size(); i > 0; --i) {
        std::uint32_t bits;
        unsigned count;
        fseEncode(state, encoder[symbols[i - 1]], bits, count);
        writer.write(bits, count);
    }
    int bitsValue;
    const std::uint8_t* end = writer.finish(bitsValue);
    ASSERT_EQ(end - bytes.data(), 2);
    EXPECT_EQ(bytes[0], 0xC0);
    EXPECT_EQ(bytes[1], 0x02);
    EXPECT_EQ(bitsValue, -6);
    EXPECT_EQ(state, 0u);

    FseBitReader reader;
    ASSERT_TRUE(reader.start(bytes.data(), 2, bitsValue));
    reader.refill();
    for (const std::uint8_t expected : symbols) {
        const LiteralDecoderEntry& entry = decoder[state];
        EXPECT_EQ(entry.symbol, expected);
        ASSERT_LE(entry.bits, reader.available());
        state = static_cast<std::uint32_t>(entry.delta + static_cast<int>(reader.read(entry.bits)));
    }
    EXPECT_EQ(reader.remaining(), 0u);
}

TEST(FseTablesTest, BitReaderRejectsBadPaddingAndSizes) {
    const std::array<std::uint8_t, 2> stream = {0xC0, 0x02};
    FseBitReader reader;
    EXPECT_TRUE(reader.start(stream.data(), 2, -6));
    EXPECT_EQ(reader.remaining(), 10u);
    // Bit 2 of the last byte is set, so it cannot be padding.
    EXPECT_FALSE(reader.start(stream.data(), 2, -7));
    EXPECT_FALSE(reader.start(stream.data(), 0, -1));
    EXPECT_FALSE(reader.start(stream.data(), 2, 1));
    EXPECT_TRUE(reader.start(stream.data(), 0, 0));
    EXPECT_EQ(reader.remaining(), 0u);
}

TEST(FseTablesTest, NormalizedFrequenciesFillTheTableAndKeepEverySymbol) {
    const auto check = [](std::vector<std::uint32_t> counts, std::uint32_t states) {
        std::vector<std::uint16_t> frequencies(counts.size());
        normalizeFrequencies(counts, states, frequencies);
        EXPECT_EQ(std::accumulate(frequencies.begin(), frequencies.end(), 0u), states);
        const bool empty = std::accumulate(counts.begin(), counts.end(), 0u) == 0;
        for (std::size_t i = empty ? 1 : 0; i < counts.size(); ++i) {
            EXPECT_EQ(counts[i] > 0, frequencies[i] > 0) << "symbol " << i;
        }
        return frequencies;
    };
    // Nothing to code: symbol 0 takes every state.
    EXPECT_EQ(check(std::vector<std::uint32_t>(20, 0), 64)[0], 64);
    EXPECT_EQ(check({0, 0, 5, 0}, 8)[2], 8);
    // One dominant symbol and many rare ones: the rare ones round up to 1 and the overrun is
    // taken back from the others.
    std::vector<std::uint32_t> skewed(256, 1);
    skewed[65] = 1'000'000;
    EXPECT_EQ(check(skewed, 1024)[65], 1024 - 255);
    std::vector<std::uint32_t> rare(64, 1);
    rare[0] = 0;
    rare[1] = 100;
    check(rare, 256);
    check({1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, 64);
    // The frequencies of the zeros vector's block header.
    std::vector<std::uint32_t> lCounts(20, 0);
    lCounts[0] = 68;
    lCounts[1] = 1;
    lCounts[5] = 1;
    const auto l = check(lCounts, 64);
    EXPECT_EQ(l[0], 62);
    EXPECT_EQ(l[1], 1);
    EXPECT_EQ(l[5], 1);
}

TEST(FseTablesTest, FrequencyCodesRoundTripAndRejectBadLengths) {
    std::vector<std::uint16_t> values(1048);
    std::iota(values.begin(), values.end(), 0);
    std::vector<std::uint8_t> bytes;
    appendFrequencyCodes(values, bytes);
    std::vector<std::uint16_t> decoded(values.size());
    ASSERT_TRUE(decodeFrequencyCodes(bytes, decoded));
    EXPECT_EQ(decoded, values);

    // One byte short: the last code does not fit. One byte more: unused header bytes.
    EXPECT_FALSE(decodeFrequencyCodes(std::span(bytes).first(bytes.size() - 1), decoded));
    bytes.push_back(0);
    EXPECT_FALSE(decodeFrequencyCodes(bytes, decoded));

    // From the zeros vector's header: 6F 82 starts with the 14-bit code of 62, then the 2-bit
    // code of 1.
    const std::array<std::uint8_t, 2> start = {0x6F, 0x82};
    std::array<std::uint16_t, 2> two{};
    ASSERT_TRUE(decodeFrequencyCodes(start, two));
    EXPECT_EQ(two[0], 62);
    EXPECT_EQ(two[1], 1);
}

TEST(FseTablesTest, DistanceSymbolsMatchTheirBases) {
    for (std::uint32_t symbol = 0; symbol < kDSymbols; ++symbol) {
        const auto base = static_cast<std::uint32_t>(kDBase[symbol]);
        const std::uint32_t last = base + (1u << kDExtraBits[symbol]) - 1;
        EXPECT_EQ(dSymbolOf(base), symbol);
        EXPECT_EQ(dSymbolOf(last), symbol);
    }
    EXPECT_EQ(kDBase[20], 124);
    EXPECT_EQ(kDBase[63], 229372);
    for (std::uint32_t l = 0; l <= kMaxLValue; ++l) {
        const std::uint32_t s = lSymbolOf(l);
        EXPECT_LT(l - static_cast<std::uint32_t>(kLBase[s]), 1u << kLExtraBits[s]) << l;
    }
    for (std::uint32_t m = 0; m <= kMaxMValue; ++m) {
        const std::uint32_t s = mSymbolOf(m);
        EXPECT_LT(m - static_cast<std::uint32_t>(kMBase[s]), 1u << kMExtraBits[s]) << m;
    }
}

} // namespace
} // namespace brimvale::lzfse
