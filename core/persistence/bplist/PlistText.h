#pragma once

// Text conversions for binary property list strings.
//
// The format stores a string either as ASCII bytes or, when any character is outside ASCII, as
// UTF-16 big-endian code units. Brimvale holds names as bytes in std::string (valid UTF-8 or
// not; a Linux file name can be any bytes), and converts them with the one reversible mapping
// of core/support/ByteNames.h: a byte that is not part of valid UTF-8 is written as the lone
// surrogate U+DC00 + byte and read back as that byte, so every name survives a round trip.
// Other lone surrogates (a high surrogate not followed by a low one, or a low one outside
// U+DC80–U+DCFF on its own) read as U+FFFD; pairs are combined.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace brimvale::bplist {

// True when every byte is below 0x80.
bool isAscii(std::string_view text);

// Number of UTF-16 code units the name `bytes` maps to.
std::size_t utf16Length(std::string_view bytes);

// Writes `bytes` as UTF-16 big-endian to `out`, which has room for 2 * utf16Length(bytes) bytes.
void writeUtf16BigEndian(std::string_view bytes, std::uint8_t* out);

// Appends `unitCount` UTF-16 big-endian code units read from `units` to `out` as name bytes.
void appendBytesFromUtf16BigEndian(const std::uint8_t* units, std::size_t unitCount,
                                   std::string& out);

} // namespace brimvale::bplist
