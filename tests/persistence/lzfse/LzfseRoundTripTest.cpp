// Round trips through our encoder and decoder at the sizes where the encoder changes its
// choices (block kinds, block limits, segment edges) and for data of every character.

#include "core/persistence/lzfse/Lzfse.h"
#include "tests/persistence/lzfse/LzfseTestData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace brimvale {
namespace {

using lzfsetest::Bytes;
using lzfsetest::concat;
using lzfsetest::firstMagic;
using lzfsetest::randomBytes;
using lzfsetest::wordSoup;

// Magics of all blocks of a well-formed stream, in order (walks the size fields only).
std::vector<std::string> blockMagics(const Bytes& stream) {
    std::vector<std::string> magics;
    std::size_t offset = 0;
    const auto u32 = [&](std::size_t at) {
        std::uint32_t value;
        std::memcpy(&value, stream.data() + offset + at, 4);
        return value;
    };
    const auto u64 = [&](std::size_t at) {
        std::uint64_t value;
        std::memcpy(&value, stream.data() + offset + at, 8);
        return value;
    };
    while (offset + 4 <= stream.size()) {
        const std::string magic(stream.begin() + static_cast<std::ptrdiff_t>(offset),
                                stream.begin() + static_cast<std::ptrdiff_t>(offset) + 4);
        magics.push_back(magic);
        if (magic == "bvx-") {
            offset += 8 + u32(4);
        } else if (magic == "bvxn") {
            offset += 12 + u32(8);
        } else if (magic == "bvx2") {
            offset +=
                (u64(24) & 0xFFFFFFFF) + ((u64(8) >> 20) & 0xFFFFF) + ((u64(16) >> 40) & 0xFFFFF);
        } else {
            break;
        }
    }
    return magics;
}

void expectRoundTrip(const Bytes& input) {
    const Bytes stream = lzfseCompress(input);
    EXPECT_LE(stream.size(), input.size() + 12);
    EXPECT_EQ(lzfseDecompress(stream, input.size()), input);
}

TEST(LzfseRoundTripTest, SizesAroundEveryBlockKindBoundary) {
    // Raw below 8 bytes, LZVN (or raw) below 4096, LZFSE from 4096 on.
    for (const std::size_t size :
         {0, 1, 2, 7, 8, 9, 15, 16, 17, 100, 4095, 4096, 4097, 8191, 8192, 65535, 65536, 65537}) {
        SCOPED_TRACE(size);
        expectRoundTrip(wordSoup(size));
        expectRoundTrip(randomBytes(size));
        expectRoundTrip(Bytes(size, 'a'));
    }
}

TEST(LzfseRoundTripTest, ChoosesTheBlockKindBySizeAndContent) {
    EXPECT_EQ(blockMagics(lzfseCompress({})), (std::vector<std::string>{"bvx-", "bvx$"}));
    EXPECT_EQ(lzfseCompress({}).size(), 12u);
    EXPECT_EQ(blockMagics(lzfseCompress(wordSoup(7))), (std::vector<std::string>{"bvx-", "bvx$"}));
    EXPECT_EQ(blockMagics(lzfseCompress(wordSoup(4095))),
              (std::vector<std::string>{"bvxn", "bvx$"}));
    EXPECT_EQ(blockMagics(lzfseCompress(randomBytes(4095))),
              (std::vector<std::string>{"bvx-", "bvx$"}));
    EXPECT_EQ(blockMagics(lzfseCompress(wordSoup(4096))),
              (std::vector<std::string>{"bvx2", "bvx$"}));
    // Incompressible data becomes one raw block, whatever its size.
    EXPECT_EQ(blockMagics(lzfseCompress(randomBytes(4096))),
              (std::vector<std::string>{"bvx-", "bvx$"}));
    EXPECT_EQ(blockMagics(lzfseCompress(randomBytes(300'000))),
              (std::vector<std::string>{"bvx-", "bvx$"}));
}

TEST(LzfseRoundTripTest, LongInputsSpanSeveralBlocksWithMatchesAcrossThem) {
    // A block holds at most about 10000 triples or 40000 literals, so these need many blocks.
    // The second copy of the noise matches into the raw blocks of the first.
    const Bytes noise = randomBytes(100'000, 3);
    const Bytes soup = wordSoup(600'000);
    const Bytes mixed = concat({noise, wordSoup(120'000, 5), noise, Bytes(3'000'000, 0), soup});
    const Bytes stream = lzfseCompress(mixed);
    const auto magics = blockMagics(stream);
    EXPECT_GT(std::count(magics.begin(), magics.end(), "bvx2"), 4);
    EXPECT_GT(std::count(magics.begin(), magics.end(), "bvx-"), 1);
    EXPECT_EQ(magics.back(), "bvx$");
    EXPECT_LT(stream.size(), noise.size() + soup.size() / 2);
    EXPECT_EQ(lzfseDecompress(stream, mixed.size()), mixed);

    expectRoundTrip(soup);
}

TEST(LzfseRoundTripTest, RepetitiveDataOfEveryPeriod) {
    // Distances 1 ... 20 overlap their own copies (the decoder's short-distance paths), and
    // long runs split into many maximal matches.
    for (std::size_t period = 1; period <= 20; ++period) {
        SCOPED_TRACE(period);
        const Bytes unit = randomBytes(period, period);
        Bytes input;
        while (input.size() < 50'000 + period) {
            input.insert(input.end(), unit.begin(), unit.end());
        }
        const Bytes stream = lzfseCompress(input);
        EXPECT_LT(stream.size(), 400u);
        EXPECT_EQ(lzfseDecompress(stream, input.size()), input);
    }
    expectRoundTrip(Bytes(1'000'000, 0xFF));
}

} // namespace
} // namespace brimvale
