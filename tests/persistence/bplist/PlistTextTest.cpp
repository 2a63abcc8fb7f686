#include "core/persistence/bplist/PlistText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace brimvale::bplist {
namespace {

using namespace std::string_literals;

std::string fromUtf16(std::initializer_list<char16_t> units) {
    std::vector<std::uint8_t> bytes;
    for (const char16_t unit : units) {
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
        bytes.push_back(static_cast<std::uint8_t>(unit));
    }
    std::string out;
    appendBytesFromUtf16BigEndian(bytes.data(), units.size(), out);
    return out;
}

std::vector<std::uint8_t> toUtf16(std::string_view utf8) {
    std::vector<std::uint8_t> out(2 * utf16Length(utf8), 0xEE);
    writeUtf16BigEndian(utf8, out.data());
    return out;
}

#define FFFD "\xEF\xBF\xBD"

TEST(PlistText, NamesThatAreNotUtf8RoundTripThroughUtf16) {
    for (const std::string& name : {"caf\xE9.txt"s, "\xFF\xFE"s, "\xED\xA0\x80"s, "cut \xE2\x82"s,
                                    "\xF0\x9F\x98\x80\x80"s, std::string("nul\0\xC0", 5)}) {
        const auto units = toUtf16(name);
        std::string back;
        appendBytesFromUtf16BigEndian(units.data(), units.size() / 2, back);
        EXPECT_EQ(back, name) << ::testing::PrintToString(name);
    }
    EXPECT_EQ(toUtf16("a\xE9"), (std::vector<std::uint8_t>{0x00, 0x61, 0xDC, 0xE9}));
}

TEST(PlistText, Utf16IsBigEndianWithSurrogatePairs) {
    EXPECT_EQ(
        toUtf16("A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"),
        (std::vector<std::uint8_t>{0x00, 0x41, 0x00, 0xE9, 0x20, 0xAC, 0xD8, 0x3D, 0xDE, 0x00}));
    EXPECT_EQ(utf16Length("\xF4\x8F\xBF\xBF"), 2u);
    EXPECT_EQ(toUtf16("\xF4\x8F\xBF\xBF"), (std::vector<std::uint8_t>{0xDB, 0xFF, 0xDF, 0xFF}));
}

TEST(PlistText, LoneSurrogatesInUtf16AreEscapedBytesOrReplacementCharacters) {
    EXPECT_EQ(fromUtf16({0xD83D, 0xDE00}), "\xF0\x9F\x98\x80");
    EXPECT_EQ(fromUtf16({0xD800, 0xDC00}), "\xF0\x90\x80\x80");
    EXPECT_EQ(fromUtf16({0xDBFF, 0xDFFF}), "\xF4\x8F\xBF\xBF");
    EXPECT_EQ(fromUtf16({u'a', 0xD83D}), "a" FFFD); // high surrogate at the end
    EXPECT_EQ(fromUtf16({0xD83D, u'b'}), FFFD "b"); // high surrogate, no low one
    EXPECT_EQ(fromUtf16({0xD83D, 0xD83D, 0xDE00}), FFFD "\xF0\x9F\x98\x80");
    EXPECT_EQ(fromUtf16({0xDE00, u'c'}), FFFD "c");    // low surrogate alone
    EXPECT_EQ(fromUtf16({0xDE00, 0xD83D}), FFFD FFFD); // pair in the wrong order
    EXPECT_EQ(fromUtf16({0xDC7F, 0xDC80, 0xDCFF, 0xDD00}), FFFD "\x80\xFF" FFFD);
    EXPECT_EQ(fromUtf16({0xD83D, 0xDCE9}), "\xF0\x9F\x93\xA9"); // a pair, not an escape
    EXPECT_EQ(fromUtf16({0x007F, 0x0080, 0x07FF, 0x0800, 0xFFFF}),
              "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF");
    EXPECT_EQ(fromUtf16({}), "");
}

TEST(PlistText, AsciiDetectionSeesAHighByteAtEveryPosition) {
    for (std::size_t length = 0; length <= 33; ++length) {
        const std::string plain(length, 'x');
        EXPECT_TRUE(isAscii(plain)) << length;
        for (std::size_t at = 0; at < length; ++at) {
            std::string text = plain;
            text[at] = '\x80';
            EXPECT_FALSE(isAscii(text)) << length << " " << at;
            // Only the bytes in range count: a high byte just past the end is not seen.
            EXPECT_TRUE(isAscii(std::string_view(text).substr(0, at)));
        }
    }
}

} // namespace
} // namespace brimvale::bplist
