#include "core/rclone/Utf8Text.h"

#include <algorithm>
#include <cstdint>

namespace brimvale::Utf8Text {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

// The length of the well-formed sequence at `i`, or 0 when it is ill-formed; `invalidLength`
// gets the length of the maximal subpart to replace.
std::size_t wellFormedLength(std::string_view bytes, std::size_t i, std::size_t& invalidLength) {
    const auto byte = [&](std::size_t at) {
        return static_cast<std::uint8_t>(bytes[at]);
    };
    const std::uint8_t lead = byte(i);
    invalidLength = 1;
    if (lead < 0x80) {
        return 1;
    }
    std::size_t length = 0;
    std::uint8_t low = 0x80;
    std::uint8_t high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        low = lead == 0xE0 ? 0xA0 : 0x80;
        high = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    for (std::size_t k = 1; k < length; ++k) {
        if (i + k >= bytes.size()) {
            invalidLength = k;
            return 0;
        }
        const std::uint8_t next = byte(i + k);
        const std::uint8_t min = k == 1 ? low : 0x80;
        const std::uint8_t max = k == 1 ? high : 0xBF;
        if (next < min || next > max) {
            invalidLength = k;
            return 0;
        }
    }
    return length;
}

bool isContinuationByte(char c) {
    return (static_cast<std::uint8_t>(c) & 0xC0) == 0x80;
}

char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsIgnoringCaseAt(std::string_view text, std::size_t at, std::string_view needle) {
    if (at + needle.size() > text.size()) {
        return false;
    }
    for (std::size_t k = 0; k < needle.size(); ++k) {
        if (asciiLower(text[at + k]) != asciiLower(needle[k])) {
            return false;
        }
    }
    return true;
}

// The byte length of the white space or line break that starts at `at`, or 0.
std::size_t whitespaceLengthAt(std::string_view text, std::size_t at) {
    switch (text[at]) {
    case ' ':
    case '\t':
    case '\n':
    case '\r':
    case '\v':
    case '\f':
        return 1;
    default:
        break;
    }
    const std::string_view rest = text.substr(at);
    for (const std::string_view wide : {"\xC2\xA0", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
        if (rest.starts_with(wide)) {
            return wide.size();
        }
    }
    return 0;
}

// The byte length of the white space or line break that ends just before `end`, or 0.
std::size_t whitespaceLengthBefore(std::string_view text, std::size_t end) {
    for (std::size_t length = 1; length <= std::min<std::size_t>(3, end); ++length) {
        if (whitespaceLengthAt(text, end - length) == length) {
            return length;
        }
    }
    return 0;
}

} // namespace

std::string decodeLossy(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    std::size_t i = 0;
    while (i < bytes.size()) {
        std::size_t invalidLength = 0;
        const std::size_t length = wellFormedLength(bytes, i, invalidLength);
        if (length == 0) {
            text.append(kReplacementCharacter);
            i += invalidLength;
        } else {
            text.append(bytes.substr(i, length));
            i += length;
        }
    }
    return text;
}

std::size_t characterCount(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return !isContinuationByte(c); }));
}

std::string_view prefixOfCharacters(std::string_view text, std::size_t count) {
    std::size_t seen = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!isContinuationByte(text[i])) {
            if (seen == count) {
                return text.substr(0, i);
            }
            ++seen;
        }
    }
    return text;
}

std::string_view trimWhitespaceAndNewlines(std::string_view text) {
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t length = whitespaceLengthAt(text, begin);
        if (length == 0) {
            break;
        }
        begin += length;
    }
    std::size_t end = text.size();
    while (end > begin) {
        const std::size_t length = whitespaceLengthBefore(text, end);
        if (length == 0 || end - length < begin) {
            break;
        }
        end -= length;
    }
    return text.substr(begin, end - begin);
}

std::string asciiLowercased(std::string_view text) {
    std::string lowered(text);
    std::transform(lowered.begin(), lowered.end(), lowered.begin(), asciiLower);
    return lowered;
}

bool containsIgnoringCase(std::string_view text, std::string_view needle) {
    if (needle.empty()) {
        return true;
    }
    for (std::size_t at = 0; at + needle.size() <= text.size(); ++at) {
        if (equalsIgnoringCaseAt(text, at, needle)) {
            return true;
        }
    }
    return false;
}

std::string replacingIgnoringCase(std::string_view text, std::string_view needle,
                                  std::string_view replacement) {
    if (needle.empty()) {
        return std::string(text);
    }
    std::string result;
    result.reserve(text.size());
    std::size_t at = 0;
    while (at < text.size()) {
        if (equalsIgnoringCaseAt(text, at, needle)) {
            result.append(replacement);
            at += needle.size();
        } else {
            result.push_back(text[at]);
            ++at;
        }
    }
    return result;
}

std::string removingIgnoringCase(std::string_view text, std::string_view needle) {
    return replacingIgnoringCase(text, needle, {});
}

std::string collapsingDoubleSpaces(std::string_view text) {
    return replacingIgnoringCase(text, "  ", " ");
}

std::string encodeCodePoint(char32_t codePoint) {
    if ((codePoint >= 0xD800 && codePoint <= 0xDFFF) || codePoint > 0x10FFFF) {
        codePoint = 0xFFFD;
    }
    std::string out;
    if (codePoint < 0x80) {
        out.push_back(static_cast<char>(codePoint));
    } else if (codePoint < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (codePoint >> 6)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    } else if (codePoint < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (codePoint >> 12)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (codePoint >> 18)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    }
    return out;
}

} // namespace brimvale::Utf8Text
