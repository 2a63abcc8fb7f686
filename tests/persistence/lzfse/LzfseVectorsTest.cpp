// The reference vectors: streams made by the reference encoder must decode exactly, and our
// encoder must make streams a conforming decoder reads the same way.

#include "core/persistence/lzfse/Lzfse.h"
#include "tests/persistence/lzfse/LzfseTestData.h"

#include <gtest/gtest.h>

namespace brimvale {
namespace {

using lzfsetest::Bytes;
using lzfsetest::kVectorsDir;
using lzfsetest::readFile;
using lzfsetest::vectorNames;

constexpr std::size_t kLimit = 64 << 20;

TEST(LzfseVectorsTest, ReferenceStreamsDecodeToTheirInputs) {
    const auto names = vectorNames();
    ASSERT_GE(names.size(), 8u) << "vectors missing in " << kVectorsDir;
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const Bytes input = readFile(kVectorsDir / (name + ".bin"));
        const Bytes stream = readFile(kVectorsDir / (name + ".lzfse"));
        EXPECT_EQ(lzfseDecompress(stream, kLimit), input);
        // The output may fill the limit exactly.
        EXPECT_EQ(lzfseDecompress(stream, input.size()).size(), input.size());
    }
}

// Our encoder makes the reference encoder's choices (block kinds, matches, frequency tables,
// bit streams), so wherever the reference stream is not larger than storing the input raw, our
// stream is the same byte for byte. That shows our streams follow the format exactly, not just
// well enough for our own decoder. Where the reference stream is larger, ours stores raw blocks.
TEST(LzfseVectorsTest, OurStreamsMatchTheReferenceEncoderOrStayRaw) {
    for (const std::string& name : vectorNames()) {
        SCOPED_TRACE(name);
        const Bytes input = readFile(kVectorsDir / (name + ".bin"));
        const Bytes reference = readFile(kVectorsDir / (name + ".lzfse"));
        const Bytes ours = lzfseCompress(input);
        EXPECT_EQ(lzfseDecompress(ours, kLimit), input);
        if (reference.size() <= input.size() + 12) {
            EXPECT_EQ(ours, reference);
        } else {
            EXPECT_EQ(ours.size(), input.size() + 12);
        }
    }
}

} // namespace
} // namespace brimvale
