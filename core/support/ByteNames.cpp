#include "core/support/ByteNames.h"

namespace brimvale::ByteNames {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void appendUtf8(char32_t cp, std::string& out) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

} // namespace

std::size_t validUtf8SequenceLength(std::string_view bytes) noexcept {
    if (bytes.empty()) {
        return 0;
    }
    const auto byte = [&](std::size_t i) {
        return static_cast<unsigned char>(bytes[i]);
    };
    const unsigned char lead = byte(0);
    if (lead < 0x80) {
        return 1;
    }
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) {
            low = 0xA0; // no overlong forms
        } else if (lead == 0xED) {
            high = 0x9F; // no surrogates
        }
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) {
            low = 0x90;
        } else if (lead == 0xF4) {
            high = 0x8F; // nothing past U+10FFFF
        }
    } else {
        return 0;
    }
    if (bytes.size() < length || byte(1) < low || byte(1) > high) {
        return 0;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if (byte(i) < 0x80 || byte(i) > 0xBF) {
            return 0;
        }
    }
    return length;
}

bool isValidUtf8(std::string_view bytes) noexcept {
    std::size_t i = 0;
    while (i < bytes.size()) {
        if (static_cast<unsigned char>(bytes[i]) < 0x80) {
            ++i;
            continue;
        }
        const std::size_t length = validUtf8SequenceLength(bytes.substr(i));
        if (length == 0) {
            return false;
        }
        i += length;
    }
    return true;
}

void appendCodePointAsNameBytes(char32_t codePoint, std::string& out) {
    if (const auto byte = byteOfEscape(codePoint)) {
        out.push_back(static_cast<char>(*byte));
    } else if ((codePoint >= 0xD800 && codePoint <= 0xDFFF) || codePoint > 0x10FFFF) {
        appendUtf8(kReplacement, out);
    } else {
        appendUtf8(codePoint, out);
    }
}

std::u16string decodeFileNameBytes(std::string_view bytes) {
    std::u16string text;
    text.reserve(bytes.size());
    forEachCodePoint(bytes, [&](char32_t cp) {
        if (cp >= 0x10000) {
            cp -= 0x10000;
            text.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            text.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            text.push_back(static_cast<char16_t>(cp));
        }
    });
    return text;
}

std::size_t utf16Length(std::string_view bytes) noexcept {
    std::size_t units = 0;
    forEachCodePoint(bytes, [&](char32_t cp) { units += cp >= 0x10000 ? 2 : 1; });
    return units;
}

std::string encodeFileNameBytes(std::u16string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char32_t unit = text[i];
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            appendUtf8(0x10000 + ((unit - 0xD800) << 10) + (text[i + 1] - 0xDC00), bytes);
            ++i;
        } else {
            appendCodePointAsNameBytes(unit, bytes);
        }
    }
    return bytes;
}

} // namespace brimvale::ByteNames
