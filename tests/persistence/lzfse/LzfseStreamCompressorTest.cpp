// The piece-by-piece compressor: any cut of a stream decodes to the same bytes, pieces reach the
// sink in order whatever thread finishes first, and a failing sink ends the stream cleanly.

#include "core/persistence/lzfse/LzfseStreamCompressor.h"

#include "core/persistence/lzfse/Lzfse.h"
#include "tests/persistence/lzfse/LzfseTestData.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

namespace brimvale {
namespace {

using lzfsetest::Bytes;
using lzfsetest::randomBytes;
using lzfsetest::wordSoup;

Bytes compressInPieces(const Bytes& input, const std::vector<std::size_t>& cuts, unsigned threads) {
    Bytes stream;
    LzfseStreamCompressor compressor(
        [&](std::span<const std::uint8_t> bytes) {
            stream.insert(stream.end(), bytes.begin(), bytes.end());
        },
        threads);
    std::size_t offset = 0;
    for (std::size_t i = 0; offset < input.size(); ++i) {
        const std::size_t size = std::min(cuts[i % cuts.size()], input.size() - offset);
        Bytes piece = compressor.emptyPiece();
        piece.assign(input.begin() + static_cast<std::ptrdiff_t>(offset),
                     input.begin() + static_cast<std::ptrdiff_t>(offset + size));
        compressor.compress(std::move(piece));
        compressor.compress({}); // an empty piece changes nothing
        offset += size;
    }
    compressor.finish();
    return stream;
}

TEST(LzfseStreamCompressor, AnyCutOfTheStreamDecodesToTheSameBytes) {
    Bytes mixed = wordSoup(3 << 20, 11);
    const Bytes noise = randomBytes(300'000, 5);
    mixed.insert(mixed.begin() + 1'000'000, noise.begin(), noise.end());
    const std::vector<std::vector<std::size_t>> cutings = {
        {1 << 20}, {1, 7, 4095, 4096, 70'001}, {(1 << 20) + 3, 5}, {50'000'000}};
    for (const unsigned threads : {1u, 3u}) {
        for (const auto& cuts : cutings) {
            const Bytes stream = compressInPieces(mixed, cuts, threads);
            EXPECT_EQ(lzfseDecompress(stream, mixed.size()), mixed)
                << "threads " << threads << ", first cut " << cuts[0];
            EXPECT_LT(stream.size(), mixed.size()) << "pieces still compress";
        }
        // Nothing, and a single byte, are complete streams too.
        EXPECT_TRUE(lzfseDecompress(compressInPieces({}, {1}, threads), 16).empty());
        EXPECT_EQ(lzfseDecompress(compressInPieces({42}, {1}, threads), 16), Bytes{42});
    }
    // Cut into megabyte pieces, the stream is within a percent of compressing it whole.
    const Bytes words = wordSoup(8 << 20, 3);
    const double whole = static_cast<double>(lzfseCompress(words).size());
    const double pieces = static_cast<double>(compressInPieces(words, {1 << 20}, 2).size());
    EXPECT_LT(pieces, whole * 1.01);
}

TEST(LzfseStreamCompressor, AFailingSinkEndsTheStreamAndHearsNothingMore) {
    std::atomic<int> callsAfterFailure{0};
    std::atomic<bool> failed{false};
    LzfseStreamCompressor compressor(
        [&](std::span<const std::uint8_t>) {
            if (failed.exchange(true)) {
                ++callsAfterFailure;
            }
            throw std::runtime_error("disk full");
        },
        2);
    const Bytes input = wordSoup(64 << 10, 2);
    bool thrown = false;
    try {
        for (int i = 0; i < 200; ++i) {
            compressor.compress(input);
            compressor.emptyPiece();
        }
        compressor.finish();
    } catch (const std::runtime_error& error) {
        thrown = true;
        EXPECT_STREQ(error.what(), "disk full");
    }
    EXPECT_TRUE(thrown);
    EXPECT_EQ(callsAfterFailure.load(), 0);

    // Given up on before finish: no marker, no hang, work in flight dropped.
    int calls = 0;
    {
        LzfseStreamCompressor abandoned([&](std::span<const std::uint8_t>) { ++calls; }, 2);
        for (int i = 0; i < 8; ++i) {
            abandoned.compress(input);
        }
    }
    EXPECT_LE(calls, 8);
}

} // namespace
} // namespace brimvale
