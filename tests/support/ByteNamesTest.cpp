#include "core/support/ByteNames.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace brimvale {
namespace {

using namespace std::string_literals;

TEST(ByteNames, EveryNameMapsToTextAndBackToItsBytes) {
    struct Case {
        std::string bytes;
        std::u16string text; // what the name becomes; each escaped byte is U+DC00 + the byte
    };
    const std::vector<Case> cases = {
        {"", u""},
        {"a\0b"s, u"a\0b"s},
        {"caf\xC3\xA9 \xE2\x82\xAC", u"caf\u00E9 \u20AC"}, // valid two and three bytes
        {"\xF0\x9F\x98\x80", u"\U0001F600"},               // valid four bytes: a pair
        {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
        {"\xED\x9F\xBF", u"\uD7FF"}, // just below the surrogates
        {"caf\xE9.txt", u"caf\xDCE9.txt"},
        {"caf\xE8.txt", u"caf\xDCE8.txt"},
        {"a\x80"s + "b", u"a\xDC80"s + u"b"},              // lone continuation byte
        {"\xBF\x80", u"\xDCBF\xDC80"},                     // two of them
        {"\xC0\xAF", u"\xDCC0\xDCAF"},                     // overlong "/"
        {"\xE0\x80\xAF", u"\xDCE0\xDC80\xDCAF"},           // overlong, three bytes
        {"\xF0\x80\x80\xAF", u"\xDCF0\xDC80\xDC80\xDCAF"}, // overlong, four bytes
        {"\xED\xA0\x80", u"\xDCED\xDCA0\xDC80"},           // an encoded surrogate
        {"\xED\xB3\xA9", u"\xDCED\xDCB3\xDCA9"},           // the encoded U+DCE9 itself
        {"\xF4\x90\x80\x80", u"\xDCF4\xDC90\xDC80\xDC80"}, // past U+10FFFF
        {"\xF5\xF8\xFC\xFE\xFF", u"\xDCF5\xDCF8\xDCFC\xDCFE\xDCFF"},
        {"\xC3", u"\xDCC3"}, // cut at the end
        {"x\xE2\x82", u"x\xDCE2\xDC82"},
        {"\xF0\x9F\x98", u"\xDCF0\xDC9F\xDC98"},
        {"\xE2\x82\xE2\x82\xAC", u"\xDCE2\xDC82\u20AC"}, // cut, then a whole one
        {"\xF0\x9F\x98\x80\xF0", u"\U0001F600\xDCF0"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.bytes));
        const std::u16string text = ByteNames::decodeFileNameBytes(c.bytes);
        EXPECT_EQ(text, c.text);
        EXPECT_EQ(ByteNames::utf16Length(c.bytes), c.text.size());
        EXPECT_EQ(ByteNames::encodeFileNameBytes(text), c.bytes);
        const bool escaped = std::any_of(text.begin(), text.end(), [](char16_t unit) {
            return unit >= 0xDC80 && unit <= 0xDCFF;
        });
        EXPECT_EQ(ByteNames::isValidUtf8(c.bytes), !escaped);
    }
    // Text the mapping never makes: a lone surrogate that stands for no byte is U+FFFD; escapes
    // that spell valid UTF-8 give those bytes (which map back to the character, as in Python).
    EXPECT_EQ(ByteNames::encodeFileNameBytes(u"a\xD800"), "a\xEF\xBF\xBD");
    EXPECT_EQ(ByteNames::encodeFileNameBytes(u"\xD83D"
                                             u"b"),
              "\xEF\xBF\xBD"
              "b");
    EXPECT_EQ(ByteNames::encodeFileNameBytes(u"\xDC7F\xDD00"), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(ByteNames::encodeFileNameBytes(u"\xDCC3\xDCA9"), "\xC3\xA9");
}

} // namespace
} // namespace brimvale
