// Damaged and hostile streams: each must end in CorruptDataError naming the problem, or decode
// to something within the output limit; never a crash, a read outside the input or a large
// allocation (this suite also runs under ASan and UBSan).

#include "core/persistence/lzfse/LittleEndian.h"
#include "core/persistence/lzfse/Lzfse.h"
#include "core/persistence/lzfse/LzfseBlockEncoder.h"
#include "core/persistence/lzfse/LzfseBlockHeader.h"
#include "core/support/CorruptDataError.h"
#include "tests/persistence/lzfse/LzfseTestData.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace brimvale {
namespace {

using lzfse::LzfseBlockHeader;
using lzfse::LzfseTriple;
using lzfsetest::Bytes;
using lzfsetest::concat;
using lzfsetest::randomBytes;
using lzfsetest::wordSoup;
using testing::HasSubstr;

constexpr std::size_t kLimit = 1 << 20;

Bytes text(std::string_view chars) {
    return Bytes(chars.begin(), chars.end());
}

const Bytes kEndOfStream = text("bvx$");

// The message of the CorruptDataError decoding throws, or "decoded" if it succeeds.
std::string decodeError(const Bytes& stream, std::size_t limit = kLimit) {
    try {
        lzfseDecompress(stream, limit);
    } catch (const CorruptDataError& error) {
        return error.what();
    }
    return "decoded";
}

Bytes rawBlock(const Bytes& bytes) {
    Bytes block = text("bvx-");
    block.resize(8);
    lzfse::storeLe32(block.data() + 4, static_cast<std::uint32_t>(bytes.size()));
    return concat({block, bytes});
}

Bytes lzvnBlock(std::uint32_t rawSize, const Bytes& payload) {
    Bytes block = text("bvxn");
    block.resize(12);
    lzfse::storeLe32(block.data() + 4, rawSize);
    lzfse::storeLe32(block.data() + 8, static_cast<std::uint32_t>(payload.size()));
    return concat({block, payload});
}

const Bytes kLzvnEnd = {0x06, 0, 0, 0, 0, 0, 0, 0};

// An LZFSE v2 block coding exactly the given triples, which the match finder would never
// produce; `literalCount` is the header's count (by default, the literals given).
Bytes lzfseBlock(std::string_view literals, const std::vector<LzfseTriple>& triples,
                 std::size_t literalCount = std::string_view::npos) {
    Bytes buffer(literals.begin(), literals.end());
    buffer.resize(literals.size() + 4);
    Bytes block;
    lzfse::LzfseBlockEncoder().append(buffer, literals.size(), triples, block);
    if (literalCount != std::string_view::npos) {
        // Word0 bits 0-19.
        std::uint64_t word0 = lzfse::loadLe64(block.data() + 8);
        word0 = (word0 & ~std::uint64_t{0xFFFFF}) | literalCount;
        lzfse::storeLe64(block.data() + 8, word0);
    }
    return block;
}

// Replaces `width` bits at `first` of the 64-bit header word at byte `offset`.
void patchBits(Bytes& block, std::size_t offset, unsigned first, unsigned width,
               std::uint64_t value) {
    const std::uint64_t mask = ((std::uint64_t{1} << width) - 1) << first;
    const std::uint64_t word = lzfse::loadLe64(block.data() + offset);
    lzfse::storeLe64(block.data() + offset, (word & ~mask) | (value << first));
}

// A v1 block with the fields and payloads of a v2 block.
Bytes toV1(const Bytes& v2Block) {
    const LzfseBlockHeader h = lzfse::parseLzfseBlockHeader(v2Block, 0);
    Bytes block(772, 0);
    std::uint8_t* p = block.data();
    lzfse::storeLe32(p, 0x31787662);
    lzfse::storeLe32(p + 4, h.rawSize);
    lzfse::storeLe32(p + 8, h.literalPayloadSize + h.lmdPayloadSize);
    lzfse::storeLe32(p + 12, h.literalCount);
    lzfse::storeLe32(p + 16, h.matchCount);
    lzfse::storeLe32(p + 20, h.literalPayloadSize);
    lzfse::storeLe32(p + 24, h.lmdPayloadSize);
    lzfse::storeLe32(p + 28, static_cast<std::uint32_t>(h.literalBits));
    for (std::size_t i = 0; i < 4; ++i) {
        lzfse::storeLe16(p + 32 + 2 * i, static_cast<std::uint16_t>(h.literalStates[i]));
    }
    lzfse::storeLe32(p + 40, static_cast<std::uint32_t>(h.lmdBits));
    lzfse::storeLe16(p + 44, static_cast<std::uint16_t>(h.lState));
    lzfse::storeLe16(p + 46, static_cast<std::uint16_t>(h.mState));
    lzfse::storeLe16(p + 48, static_cast<std::uint16_t>(h.dState));
    std::size_t at = 50;
    for (const auto* table : {&h.lFrequencies[0], &h.mFrequencies[0], &h.dFrequencies[0]}) {
        const std::size_t count = table == &h.dFrequencies[0] ? 64 : 20;
        for (std::size_t i = 0; i < count; ++i, at += 2) {
            lzfse::storeLe16(p + at, table[i]);
        }
    }
    for (const std::uint16_t f : h.literalFrequencies) {
        lzfse::storeLe16(p + at, f);
        at += 2;
    }
    return concat({block, std::span(v2Block).subspan(h.headerSize)});
}

TEST(LzfseCorruptInputTest, StreamFramingErrors) {
    EXPECT_EQ(decodeError({}), "LZFSE stream is empty");
    EXPECT_EQ(decodeError(text("bvx")),
              "LZFSE stream truncated in block magic (no end-of-stream marker) at offset 0");
    EXPECT_EQ(decodeError(rawBlock(text("abc"))),
              "LZFSE stream truncated in block magic (no end-of-stream marker) at offset 11");
    EXPECT_EQ(decodeError(text("bvxZ....")),
              "LZFSE stream has an unknown block magic 0x5a787662 at offset 0");
    EXPECT_EQ(decodeError(Bytes(16, 0)),
              "LZFSE stream has an unknown block magic 0x00000000 at offset 0");
    EXPECT_EQ(decodeError(concat({text("bvx-"), Bytes{9, 0, 0, 0}, text("abc"), kEndOfStream})),
              "LZFSE stream truncated in block payload at offset 0");
    EXPECT_EQ(decodeError(text("bvx-\x01\x00")),
              "LZFSE stream truncated in block header at offset 0");
    EXPECT_EQ(decodeError(text("bvxn\x01\x00\x00\x00\x08")),
              "LZFSE stream truncated in block header at offset 0");
    EXPECT_EQ(decodeError(text("bvx2\x01\x00\x00\x00")),
              "LZFSE stream truncated in block header at offset 0");
    EXPECT_EQ(decodeError(text("bvx1\x01\x00\x00\x00")),
              "LZFSE stream truncated in block header at offset 0");

    // Valid: an end marker alone, empty raw blocks, bytes after the end marker.
    EXPECT_EQ(lzfseDecompress(kEndOfStream, 0), Bytes());
    EXPECT_EQ(lzfseDecompress(concat({rawBlock({}), rawBlock(text("ab")), rawBlock({}),
                                      kEndOfStream, text("trailing garbage")}),
                              2),
              text("ab"));
}

TEST(LzfseCorruptInputTest, EveryTruncationOfAStreamFails) {
    for (const Bytes& input : {wordSoup(5), wordSoup(3000), wordSoup(20'000), randomBytes(5000)}) {
        const Bytes stream = lzfseCompress(input);
        SCOPED_TRACE(lzfsetest::firstMagic(stream));
        ASSERT_EQ(lzfseDecompress(stream, input.size()), input);
        for (std::size_t length = 0; length < stream.size(); ++length) {
            EXPECT_THAT(decodeError(Bytes(stream.begin(),
                                          stream.begin() + static_cast<std::ptrdiff_t>(length))),
                        HasSubstr("LZFSE stream"))
                << "prefix of " << length << " bytes";
        }
    }
}

TEST(LzfseCorruptInputTest, FlippedBitsFailCleanlyOrStayWithinTheLimit) {
    for (const Bytes& input : {wordSoup(2000), wordSoup(6000)}) {
        const Bytes stream = lzfseCompress(input);
        SCOPED_TRACE(lzfsetest::firstMagic(stream));
        const std::size_t limit = input.size() + 100;
        for (std::size_t bit = 0; bit < 8 * stream.size(); ++bit) {
            Bytes damaged = stream;
            damaged[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
            try {
                EXPECT_LE(lzfseDecompress(damaged, limit).size(), limit);
            } catch (const CorruptDataError&) {
            }
        }
    }
    // Random bytes after each magic.
    for (const char* magic : {"bvx-", "bvxn", "bvx1", "bvx2"}) {
        for (std::uint64_t seed = 1; seed <= 200; ++seed) {
            const Bytes stream = concat({text(magic), randomBytes(seed * 7, seed)});
            try {
                EXPECT_LE(lzfseDecompress(stream, 4096).size(), 4096u);
            } catch (const CorruptDataError&) {
            }
        }
    }
}

TEST(LzfseCorruptInputTest, OutputLimitIsEnforcedForEveryBlockKind) {
    const Bytes small = wordSoup(7);
    const Bytes medium = wordSoup(3000);
    const Bytes large = wordSoup(50'000);
    for (const Bytes& input : {small, medium, large, randomBytes(5000)}) {
        const Bytes stream = lzfseCompress(input);
        SCOPED_TRACE(lzfsetest::firstMagic(stream));
        EXPECT_EQ(lzfseDecompress(stream, input.size()), input);
        EXPECT_EQ(decodeError(stream, input.size() - 1),
                  "LZFSE stream output exceeds the limit of " + std::to_string(input.size() - 1) +
                      " bytes");
    }
    // The second block passes the limit.
    const Bytes two = concat({rawBlock(text("abcd")), rawBlock(text("ef")), kEndOfStream});
    EXPECT_THAT(decodeError(two, 5), HasSubstr("exceeds the limit of 5 bytes"));
    EXPECT_EQ(lzfseDecompress(two, 6), text("abcdef"));
    // A block announcing a huge size is refused before memory is set aside for it.
    Bytes huge = concat({lzfseBlock("abcd", {{4, 0, 1}}), kEndOfStream});
    lzfse::storeLe32(huge.data() + 4, 0xFFFFFFF0);
    EXPECT_THAT(
        decodeError(huge, SIZE_MAX),
        HasSubstr("block size 4294967280 is more than its literals and triples can produce"));
    // Blocks whose counts could produce that much, but whose payloads cannot: nothing near
    // the announced 2 GB is allocated.
    Bytes bloated = lzfseBlock("abcd", {{4, 0, 1}});
    patchBits(bloated, 8, 40, 20, 10000);
    lzfse::storeLe32(bloated.data() + 4, 10000 * 2359);
    Bytes manyBloated;
    for (int i = 0; i < 100; ++i) {
        manyBloated.insert(manyBloated.end(), bloated.begin(), bloated.end());
    }
    EXPECT_THAT(decodeError(concat({manyBloated, kEndOfStream}), SIZE_MAX),
                HasSubstr("LZFSE stream corrupt in block at offset 0: "));
}

TEST(LzfseCorruptInputTest, LzvnBlockErrors) {
    // "abc" with a match of 3 at distance 3, a small match of 2, a no-op: "abcabcab".
    const Bytes valid = {0xC0, 0x03, 'a', 'b', 'c', 0xF2, 0x0E};
    EXPECT_EQ(lzfseDecompress(concat({lzvnBlock(8, concat({valid, kLzvnEnd})), kEndOfStream}), 8),
              text("abcabcab"));
    // Matches reach into the output of earlier blocks.
    EXPECT_EQ(
        lzfseDecompress(concat({rawBlock(text("hello")),
                                lzvnBlock(5, concat({Bytes{0x10, 0x05}, kLzvnEnd})), kEndOfStream}),
                        10),
        text("hellohello"));

    const auto lzvnError = [](std::uint32_t rawSize, const Bytes& payload) {
        return decodeError(concat({lzvnBlock(rawSize, payload), kEndOfStream}));
    };
    EXPECT_THAT(lzvnError(8, concat({valid, Bytes{0x1E}, kLzvnEnd})),
                HasSubstr("undefined LZVN opcode 30 at payload offset 7"));
    for (const std::uint8_t undefined : {0x26, 0x3E, 0x70, 0x7F, 0xD0, 0xDF}) {
        EXPECT_THAT(lzvnError(8, concat({Bytes{undefined}, kLzvnEnd})), HasSubstr("undefined"));
    }
    // A match before any distance was set, or reaching before the output.
    EXPECT_THAT(lzvnError(3, concat({Bytes{0xF3}, kLzvnEnd})),
                HasSubstr("LZVN match distance 0 is out of range"));
    EXPECT_THAT(lzvnError(3, concat({Bytes{0x00, 0x00}, kLzvnEnd})),
                HasSubstr("distance 0 is out of range"));
    EXPECT_THAT(lzvnError(4, concat({Bytes{0x40, 0x02, 'x'}, kLzvnEnd})),
                HasSubstr("distance 2 is out of range"));
    EXPECT_THAT(lzvnError(4, concat({Bytes{0x47, 0x02, 0x00, 'x'}, kLzvnEnd})),
                HasSubstr("distance 2 is out of range"));
    // Sizes that do not add up.
    EXPECT_THAT(lzvnError(9, concat({valid, kLzvnEnd})),
                HasSubstr("LZVN block produces 8 bytes instead of 9"));
    EXPECT_THAT(lzvnError(7, concat({valid, kLzvnEnd})), HasSubstr("more than its size of 7"));
    EXPECT_THAT(lzvnError(0, kLzvnEnd), HasSubstr("LZVN block size 0 does not fit"));
    EXPECT_THAT(lzvnError(2000, kLzvnEnd), HasSubstr("LZVN block size 2000 does not fit"));
    // Payloads that end too early or go on after the end opcode.
    EXPECT_THAT(lzvnError(8, valid), HasSubstr("ends without an end opcode"));
    EXPECT_THAT(lzvnError(8, concat({valid, kLzvnEnd, Bytes{0}})),
                HasSubstr("end opcode is not the last 8 payload bytes"));
    EXPECT_THAT(lzvnError(8, Bytes{0xE0}), HasSubstr("LZVN opcode truncated"));
    EXPECT_THAT(lzvnError(8, Bytes{0xE5, 'a'}), HasSubstr("LZVN literals truncated"));
    EXPECT_THAT(lzvnError(8, Bytes{0xA0, 0x01}), HasSubstr("LZVN opcode truncated"));
}

TEST(LzfseCorruptInputTest, LzfseTripleErrors) {
    // A valid hand-made block: "abcd", then 6 bytes from distance 4, then "xy".
    const Bytes good = lzfseBlock("abcdxy", {{4, 6, 4}, {2, 0, 4}});
    EXPECT_EQ(lzfseDecompress(concat({good, kEndOfStream}), 12), text("abcdabcdabxy"));
    // The same as a v1 block (whose wider fields allow more out-of-range values), and a match
    // into an earlier raw block.
    EXPECT_EQ(lzfseDecompress(concat({toV1(good), kEndOfStream}), 12), text("abcdabcdabxy"));
    Bytes badV1 = toV1(good);
    lzfse::storeLe16(badV1.data() + 36, 1024);
    EXPECT_THAT(decodeError(concat({badV1, kEndOfStream})),
                HasSubstr("literal state 1024 exceeds 1023"));
    badV1 = toV1(good);
    lzfse::storeLe32(badV1.data() + 40, static_cast<std::uint32_t>(-9));
    EXPECT_THAT(decodeError(concat({badV1, kEndOfStream})),
                HasSubstr("bit stream padding value -9 is out of range"));
    EXPECT_EQ(lzfseDecompress(
                  concat({rawBlock(text("hello")), lzfseBlock("", {{0, 5, 5}}), kEndOfStream}), 10),
              text("hellohello"));

    const auto blockError = [](const Bytes& block) {
        return decodeError(concat({block, kEndOfStream}));
    };
    EXPECT_THAT(blockError(lzfseBlock("ab", {{2, 3, 0}})),
                HasSubstr("block at offset 0: first triple repeats a distance"));
    EXPECT_THAT(blockError(lzfseBlock("ab", {{2, 3, 3}})),
                HasSubstr("match distance 3 reaches before the start of the output"));
    EXPECT_THAT(blockError(lzfseBlock("abcdefgh", {{8, 0, 1}}, 4)),
                HasSubstr("triples use more literals than the block holds"));

    // The declared block size must be what the triples produce.
    Bytes shorter = good;
    lzfse::storeLe32(shorter.data() + 4, 11);
    EXPECT_THAT(blockError(shorter), HasSubstr("triples produce more than the block's size of 11"));
    Bytes longer = good;
    lzfse::storeLe32(longer.data() + 4, 13);
    EXPECT_THAT(blockError(longer), HasSubstr("triples produce less than the block's size of 13"));

    // More triples than the stream holds.
    Bytes moreTriples = good;
    patchBits(moreTriples, 8, 40, 20, 900);
    EXPECT_THAT(blockError(moreTriples), HasSubstr("LZFSE stream corrupt in block at offset 0"));
}

TEST(LzfseCorruptInputTest, LzfseHeaderErrors) {
    const Bytes good = lzfseBlock("abcdxy", {{4, 6, 4}, {2, 0, 4}});
    const auto patchedError = [&](std::size_t word, unsigned first, unsigned width,
                                  std::uint64_t value) {
        Bytes block = good;
        patchBits(block, 8 + 8 * word, first, width, value);
        return decodeError(concat({block, kEndOfStream}));
    };
    EXPECT_THAT(patchedError(0, 0, 20, 40001), HasSubstr("literal count 40001 exceeds 40000"));
    EXPECT_THAT(patchedError(0, 40, 20, 10001), HasSubstr("match count 10001 exceeds 10000"));
    EXPECT_THAT(patchedError(2, 32, 10, 64), HasSubstr("L state 64 exceeds 63"));
    EXPECT_THAT(patchedError(2, 42, 10, 64), HasSubstr("M state 64 exceeds 63"));
    EXPECT_THAT(patchedError(2, 52, 10, 256), HasSubstr("D state 256 exceeds 255"));
    EXPECT_THAT(patchedError(2, 0, 32, 31), HasSubstr("header size 31 is smaller"));
    EXPECT_THAT(patchedError(2, 0, 32, 5000), HasSubstr("truncated in block header at offset 0"));
    EXPECT_THAT(patchedError(0, 20, 20, 5000), HasSubstr("truncated in block payload at offset 0"));
    EXPECT_THAT(patchedError(1, 40, 20, 3), HasSubstr("L/M/D stream has a bad size or padding"));
    // Header bytes beyond the frequency codes.
    const auto headerSize = static_cast<std::uint32_t>(lzfse::loadLe64(good.data() + 24));
    EXPECT_THAT(patchedError(2, 0, 32, headerSize + 1),
                HasSubstr("frequency tables do not fill the header exactly"));

    // Frequency tables that overfill or underfill the states of a table in use. Every state of
    // the tables below reads 0 bits, so the block holds 4 zero literals and the triple
    // (L 4, M 0, D 1) with no bits at all: its L/M/D stream is just the 8 leading bytes.
    const auto tableError = [](auto change, std::uint8_t lastLmdByte = 0) {
        LzfseBlockHeader header;
        header.lFrequencies[4] = 64;
        header.mFrequencies[0] = 64;
        header.dFrequencies[1] = 256;
        header.literalFrequencies[0] = 1024;
        header.literalCount = 4;
        header.matchCount = 1;
        header.rawSize = 4;
        header.lmdPayloadSize = 8;
        change(header);
        Bytes block;
        header.headerSize = lzfse::appendLzfseV2Header(header, block);
        lzfse::storeLzfseV2Fields(header, block.data());
        block.resize(block.size() + 8, 0);
        block.back() = lastLmdByte;
        return decodeError(concat({block, kEndOfStream}));
    };
    EXPECT_EQ(tableError([](LzfseBlockHeader&) {}), "decoded");
    EXPECT_EQ(tableError([](LzfseBlockHeader& h) { h.lFrequencies[5] = 4; }),
              "LZFSE stream corrupt in block at offset 0: sum of L frequencies 68 exceeds 64");
    EXPECT_THAT(tableError([](LzfseBlockHeader& h) { h.literalFrequencies[1] = 1; }),
                HasSubstr("sum of literal frequencies 1025 exceeds 1024"));
    EXPECT_THAT(tableError([](LzfseBlockHeader& h) { h.dFrequencies[1] = 255; }),
                HasSubstr("D frequencies sum to 255, not 256"));
    EXPECT_THAT(tableError([](LzfseBlockHeader& h) { h.literalFrequencies[0] = 0; }),
                HasSubstr("literal frequencies sum to 0, not 1024"));
    // Unused tables may be empty.
    EXPECT_EQ(tableError([](LzfseBlockHeader& h) {
                  h.literalFrequencies[0] = 0;
                  h.literalCount = 0;
                  h.lFrequencies = {};
                  h.lFrequencies[0] = 64;
                  h.rawSize = 0;
              }),
              "LZFSE stream corrupt in block at offset 0: match distance 1 reaches before the "
              "start of the output");
    // Padding bits must be zero; the stream must be long enough for the readers' loads.
    EXPECT_EQ(tableError([](LzfseBlockHeader& h) { h.lmdBits = -1; }, 0x7F), "decoded");
    EXPECT_THAT(tableError([](LzfseBlockHeader& h) { h.lmdBits = -1; }, 0x80),
                HasSubstr("L/M/D stream has a bad size or padding"));
    EXPECT_THAT(tableError([](LzfseBlockHeader& h) { h.lmdPayloadSize = 6; }),
                HasSubstr("L/M/D stream has a bad size or padding"));
}

} // namespace
} // namespace brimvale
