#pragma once

// Text conversions for binary property list strings.
//
// The format stores a string either as ASCII bytes or, when any character is outside ASCII, as
// UTF-16 big-endian code units. Brimvale holds text as UTF-8 in std::string.
//
// Malformed text never makes a malformed file nor a malformed std::string:
// - UTF-8 input that is not valid (file names on Linux are arbitrary bytes) has each maximal
//   invalid subsequence replaced by U+FFFD, the practice Unicode recommends (so "\xE2\x82" is one
//   U+FFFD, "\xFF\xFE" two). Such a name does not survive a round trip unchanged.
// - UTF-16 with a lone surrogate (a high surrogate not followed by a low one, or a low one on its
//   own) has that code unit replaced by U+FFFD; pairs are combined.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace brimvale::bplist {

// True when every byte is below 0x80.
bool isAscii(std::string_view text);

// Number of UTF-16 code units `utf8` encodes to, invalid sequences counted as one U+FFFD each.
std::size_t utf16Length(std::string_view utf8);

// Writes `utf8` as UTF-16 big-endian to `out`, which has room for 2 * utf16Length(utf8) bytes.
void writeUtf16BigEndian(std::string_view utf8, std::uint8_t* out);

// Appends `bytes` to `out` as valid UTF-8: valid sequences as they are, invalid ones as U+FFFD.
void appendValidUtf8(std::string_view bytes, std::string& out);

// Appends `unitCount` UTF-16 big-endian code units read from `units` to `out` as UTF-8.
void appendUtf8FromUtf16BigEndian(const std::uint8_t* units, std::size_t unitCount,
                                  std::string& out);

} // namespace brimvale::bplist
