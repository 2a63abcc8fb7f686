#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// File and folder names on Linux are bytes, not text: anything but "/" and NUL, valid UTF-8 or
// not. The tree keeps them as bytes. Where a name has to become Unicode text (UTF-16 strings of
// a saved scan, JSON, Qt strings), Brimvale uses one reversible mapping, the one Python calls
// "surrogateescape": valid UTF-8 characters map to themselves, and every other byte b
// (0x80–0xFF) maps to the lone low surrogate U+DC00 + b (U+DC80–U+DCFF). No valid UTF-8 holds a
// surrogate, so the text maps back to exactly the original bytes. Pure functions; any thread.
namespace brimvale::ByteNames {

// The length of the valid UTF-8 sequence at the start of `bytes`, or 0 when its first byte does
// not start one (an overlong form, an encoded surrogate, a value past U+10FFFF, a cut sequence,
// a stray continuation byte, bytes C0, C1 and F5–FF).
std::size_t validUtf8SequenceLength(std::string_view bytes) noexcept;

bool isValidUtf8(std::string_view bytes) noexcept;

// The code point of an escaped byte, and back: U+DC80–U+DCFF only.
constexpr char32_t escapedByteCodePoint(unsigned char byte) noexcept {
    return 0xDC00 + byte;
}
constexpr std::optional<unsigned char> byteOfEscape(char32_t codePoint) noexcept {
    if (codePoint >= 0xDC80 && codePoint <= 0xDCFF) {
        return static_cast<unsigned char>(codePoint - 0xDC00);
    }
    return std::nullopt;
}

// Calls `emit(codePoint)` for each character of `bytes` under the mapping.
template <class Emit> void forEachCodePoint(std::string_view bytes, Emit&& emit) {
    const auto* s = reinterpret_cast<const unsigned char*>(bytes.data());
    std::size_t i = 0;
    while (i < bytes.size()) {
        if (s[i] < 0x80) {
            emit(char32_t{s[i]});
            ++i;
            continue;
        }
        const std::size_t length = validUtf8SequenceLength(bytes.substr(i));
        if (length == 0) {
            emit(escapedByteCodePoint(s[i]));
            ++i;
            continue;
        }
        char32_t codePoint = s[i] & (0x7Fu >> length);
        for (std::size_t k = 1; k < length; ++k) {
            codePoint = (codePoint << 6) | (s[i + k] & 0x3Fu);
        }
        emit(codePoint);
        i += length;
    }
}

// Appends one code point of mapped text to the name bytes `out`: U+DC80–U+DCFF as their byte,
// any other code point as UTF-8 (a surrogate the mapping cannot have made, or a value past
// U+10FFFF, as U+FFFD).
void appendCodePointAsNameBytes(char32_t codePoint, std::string& out);

// The name as UTF-16 text (escaped bytes as lone surrogates), and its length in code units.
std::u16string decodeFileNameBytes(std::string_view bytes);
std::size_t utf16Length(std::string_view bytes) noexcept;

// UTF-16 text back to name bytes: surrogate pairs combined, U+DC80–U+DCFF as their byte, other
// lone surrogates as U+FFFD. The inverse of decodeFileNameBytes.
std::string encodeFileNameBytes(std::u16string_view text);

} // namespace brimvale::ByteNames
