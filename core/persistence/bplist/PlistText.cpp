#include "core/persistence/bplist/PlistText.h"

#include "core/support/ByteNames.h"

#include <cstring>

namespace brimvale::bplist {
namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080ULL;

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

std::size_t utf16Length(std::string_view bytes) {
    return ByteNames::utf16Length(bytes);
}

void writeUtf16BigEndian(std::string_view bytes, std::uint8_t* out) {
    const auto put = [&](char32_t unit) {
        *out++ = static_cast<std::uint8_t>(unit >> 8);
        *out++ = static_cast<std::uint8_t>(unit);
    };
    ByteNames::forEachCodePoint(bytes, [&](char32_t cp) {
        if (cp >= 0x10000) {
            cp -= 0x10000;
            put(0xD800 + (cp >> 10));
            put(0xDC00 + (cp & 0x3FF));
        } else {
            put(cp);
        }
    });
}

void appendBytesFromUtf16BigEndian(const std::uint8_t* units, std::size_t unitCount,
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
            ByteNames::appendCodePointAsNameBytes(unit, out);
        }
    }
}

} // namespace brimvale::bplist
