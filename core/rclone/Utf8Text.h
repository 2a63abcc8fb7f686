#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Small text helpers for rclone's output and the messages made from it. Pure functions: safe
// on any thread.
namespace brimvale::Utf8Text {

// `bytes` as valid UTF-8: every ill-formed sequence becomes U+FFFD (one per maximal invalid
// subpart, the Unicode recommendation), so decoding never fails.
std::string decodeLossy(std::string_view bytes);

// One code point as UTF-8; a surrogate or a value above U+10FFFF gives U+FFFD.
std::string encodeCodePoint(char32_t codePoint);

// The number of Unicode code points of valid UTF-8 text (what the user counts as characters
// for the texts we cap; combining marks count separately).
std::size_t characterCount(std::string_view text);
// The first `count` code points of valid UTF-8 text.
std::string_view prefixOfCharacters(std::string_view text, std::size_t count);

// `text` without white space and line breaks at either end (ASCII ones, NO-BREAK SPACE, NEXT
// LINE, LINE SEPARATOR and PARAGRAPH SEPARATOR).
std::string_view trimWhitespaceAndNewlines(std::string_view text);
// ASCII letters lower-cased; other bytes unchanged.
std::string asciiLowercased(std::string_view text);
bool containsIgnoringCase(std::string_view text, std::string_view needle);
// Every occurrence of `needle` (ASCII case-insensitive) removed, left to right.
std::string removingIgnoringCase(std::string_view text, std::string_view needle);
// Every occurrence of `needle` (ASCII case-insensitive) replaced, left to right, in one pass.
std::string replacingIgnoringCase(std::string_view text, std::string_view needle,
                                  std::string_view replacement);
// Every "  " replaced by " " in one left-to-right pass (four spaces become two).
std::string collapsingDoubleSpaces(std::string_view text);

} // namespace brimvale::Utf8Text
