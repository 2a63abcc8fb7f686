#include "core/persistence/bplist/PlistText.h"

#include <cstring>

namespace brimvale::bplist {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr std::uint64_t kHighBits = 0x8080808080808080ULL;

// Calls `emit(codePoint)` for each character of `bytes`, U+FFFD for each maximal invalid
// subsequence: a byte that cannot start a sequence, or the valid prefix of a sequence cut short
// (decoding resumes at the byte that broke it).
template <class Emit> void decodeUtf8(std::string_view bytes, Emit&& emit) {
    const auto* s = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::size_t n = bytes.size();
    std::size_t i = 0;
    while (i < n) {
        const unsigned char lead = s[i];
        if (lead < 0x80) {
            emit(char32_t{lead});
            ++i;
            continue;
        }
        unsigned continuation = 0;
        char32_t cp = 0;
        unsigned char low = 0x80;
        unsigned char high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            continuation = 1;
            cp = lead & 0x1Fu;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            continuation = 2;
            cp = lead & 0x0Fu;
            low = lead == 0xE0 ? 0xA0 : 0x80;  // no overlong forms
            high = lead == 0xED ? 0x9F : 0xBF; // no surrogates
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            continuation = 3;
            cp = lead & 0x07u;
            low = lead == 0xF0 ? 0x90 : 0x80;  // no overlong forms
            high = lead == 0xF4 ? 0x8F : 0xBF; // nothing above U+10FFFF
        } else {
            emit(kReplacement);
            ++i;
            continue;
        }
        std::size_t j = i + 1;
        bool complete = true;
        for (unsigned k = 0; k < continuation; ++k, ++j) {
            if (j >= n || s[j] < low || s[j] > high) {
                complete = false;
                break;
            }
            cp = (cp << 6) | (s[j] & 0x3Fu);
            low = 0x80;
            high = 0xBF;
        }
        emit(complete ? cp : kReplacement);
        i = j;
    }
}

void appendCodePoint(char32_t cp, std::string& out) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        const char bytes[2] = {static_cast<char>(0xC0 | (cp >> 6)),
                               static_cast<char>(0x80 | (cp & 0x3F))};
        out.append(bytes, 2);
    } else if (cp < 0x10000) {
        const char bytes[3] = {static_cast<char>(0xE0 | (cp >> 12)),
                               static_cast<char>(0x80 | ((cp >> 6) & 0x3F)),
                               static_cast<char>(0x80 | (cp & 0x3F))};
        out.append(bytes, 3);
    } else {
        const char bytes[4] = {
            static_cast<char>(0xF0 | (cp >> 18)), static_cast<char>(0x80 | ((cp >> 12) & 0x3F)),
            static_cast<char>(0x80 | ((cp >> 6) & 0x3F)), static_cast<char>(0x80 | (cp & 0x3F))};
        out.append(bytes, 4);
    }
}

} // namespace

bool isAscii(std::string_view text) {
    const char* p = text.data();
    std::size_t n = text.size();
    std::uint64_t any = 0;
    while (n >= 8) {
        std::uint64_t chunk;
        std::memcpy(&chunk, p, 8);
        any |= chunk;
        p += 8;
        n -= 8;
    }
    if (n > 0) {
        std::uint64_t chunk = 0;
        std::memcpy(&chunk, p, n);
        any |= chunk;
    }
    return (any & kHighBits) == 0;
}

std::size_t utf16Length(std::string_view utf8) {
    std::size_t units = 0;
    decodeUtf8(utf8, [&](char32_t cp) { units += cp >= 0x10000 ? 2 : 1; });
    return units;
}

void writeUtf16BigEndian(std::string_view utf8, std::uint8_t* out) {
    const auto put = [&](char32_t unit) {
        *out++ = static_cast<std::uint8_t>(unit >> 8);
        *out++ = static_cast<std::uint8_t>(unit);
    };
    decodeUtf8(utf8, [&](char32_t cp) {
        if (cp >= 0x10000) {
            cp -= 0x10000;
            put(0xD800 + (cp >> 10));
            put(0xDC00 + (cp & 0x3FF));
        } else {
            put(cp);
        }
    });
}

void appendValidUtf8(std::string_view bytes, std::string& out) {
    if (isAscii(bytes)) {
        out.append(bytes);
        return;
    }
    out.reserve(out.size() + bytes.size());
    decodeUtf8(bytes, [&](char32_t cp) { appendCodePoint(cp, out); });
}

void appendUtf8FromUtf16BigEndian(const std::uint8_t* units, std::size_t unitCount,
                                  std::string& out) {
    out.reserve(out.size() + unitCount);
    const auto unitAt = [&](std::size_t i) {
        return static_cast<char32_t>((units[2 * i] << 8) | units[2 * i + 1]);
    };
    for (std::size_t i = 0; i < unitCount; ++i) {
        const char32_t unit = unitAt(i);
        if (unit < 0xD800 || unit > 0xDFFF) {
            appendCodePoint(unit, out);
        } else if (unit <= 0xDBFF && i + 1 < unitCount && unitAt(i + 1) >= 0xDC00 &&
                   unitAt(i + 1) <= 0xDFFF) {
            appendCodePoint(0x10000 + ((unit - 0xD800) << 10) + (unitAt(i + 1) - 0xDC00), out);
            ++i;
        } else {
            appendCodePoint(kReplacement, out);
        }
    }
}

} // namespace brimvale::bplist
