#include "core/persistence/lzfse/Lzfse.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace brimvale {
namespace {

// Inputs this large are compressed in pieces side by side; the pieces must join into one
// stream that decodes to the input, with the seams anywhere in the data.
TEST(LzfseLargeInput, PiecesCompressedSideBySideFormOneStream) {
    std::vector<std::uint8_t> input;
    input.reserve(40u << 20);
    std::uint32_t state = 12345;
    while (input.size() < (40u << 20) + 12345) {
        state = state * 1103515245u + 12345u;
        const std::string line = "/home/user/Projects/p" + std::to_string(state % 977) +
                                 "/src/file" + std::to_string(state % 131) + ".cpp\n";
        input.insert(input.end(), line.begin(), line.end());
    }
    const auto compressed = lzfseCompress(input);
    EXPECT_LT(compressed.size(), input.size() / 4);
    EXPECT_EQ(lzfseDecompress(compressed, input.size()), input);
    EXPECT_THROW(lzfseDecompress(compressed, input.size() - 1), std::exception);
}

} // namespace
} // namespace brimvale
