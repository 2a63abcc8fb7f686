#pragma once

// Layout constants of the binary property list format (version 1.0, "bplist00") and the
// big-endian integer helpers shared by the reader and the writer.
//
// A file is: the 8-byte header, the objects, the offset table (one offset per object, each
// `offsetIntSize` bytes), and a 32-byte trailer:
//   5 unused bytes, 1 byte sort version, 1 byte offsetIntSize, 1 byte objectRefSize,
//   8 bytes object count, 8 bytes top object ref, 8 bytes offset of the offset table.
// Each object starts with a marker byte: the high nibble is the type, the low nibble a size or a
// count (0xF: the count follows as an integer object).

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace brimvale::bplist {

inline constexpr std::string_view kMagic = "bplist00";
inline constexpr std::size_t kHeaderSize = 8;
inline constexpr std::size_t kTrailerSize = 32;

// Marker bytes, or their high nibble for types that carry a size or count.
inline constexpr std::uint8_t kMarkerNull = 0x00;
inline constexpr std::uint8_t kMarkerFalse = 0x08;
inline constexpr std::uint8_t kMarkerTrue = 0x09;
inline constexpr std::uint8_t kMarkerFill = 0x0F;
inline constexpr std::uint8_t kTypeInteger = 0x10; // low nibble n: 2^n bytes
inline constexpr std::uint8_t kTypeReal = 0x20;    // low nibble n: 2^n bytes
inline constexpr std::uint8_t kMarkerDate = 0x33;  // 8-byte real, seconds since 2001-01-01
inline constexpr std::uint8_t kTypeData = 0x40;    // count: bytes
inline constexpr std::uint8_t kTypeAscii = 0x50;   // count: bytes
inline constexpr std::uint8_t kTypeUtf16 = 0x60;   // count: UTF-16 code units, big-endian
inline constexpr std::uint8_t kTypeUid = 0x80;     // low nibble n: n + 1 bytes
inline constexpr std::uint8_t kTypeArray = 0xA0;   // count: refs
inline constexpr std::uint8_t kTypeSet = 0xC0;     // count: refs
inline constexpr std::uint8_t kTypeDict = 0xD0;    // count: key refs, then as many value refs
inline constexpr std::uint8_t kCountFollows = 0x0F;

// Smallest byte width (1..8) whose range holds every value below `limit`, the rule readers
// apply to the trailer's ref and offset sizes (`limit` is the object count or the offset of
// the offset table).
constexpr unsigned widthForCount(std::uint64_t limit) {
    unsigned width = 1;
    while (width < 8 && (limit >> (8 * width)) != 0) {
        ++width;
    }
    return width;
}

// Reads an unsigned big-endian integer of `width` bytes (1..8).
inline std::uint64_t loadBigEndian(const std::uint8_t* p, unsigned width) {
    switch (width) {
    case 1:
        return p[0];
    case 2:
        return (std::uint64_t{p[0]} << 8) | p[1];
    case 4: {
        std::uint32_t v;
        std::memcpy(&v, p, 4);
        return __builtin_bswap32(v);
    }
    case 8: {
        std::uint64_t v;
        std::memcpy(&v, p, 8);
        return __builtin_bswap64(v);
    }
    default: {
        std::uint64_t v = 0;
        for (unsigned i = 0; i < width; ++i) {
            v = (v << 8) | p[i];
        }
        return v;
    }
    }
}

// Writes the low `width` bytes (1..8) of `value` big-endian.
inline void storeBigEndian(std::uint8_t* p, std::uint64_t value, unsigned width) {
    switch (width) {
    case 1:
        p[0] = static_cast<std::uint8_t>(value);
        return;
    case 2:
        p[0] = static_cast<std::uint8_t>(value >> 8);
        p[1] = static_cast<std::uint8_t>(value);
        return;
    case 4: {
        const std::uint32_t v = __builtin_bswap32(static_cast<std::uint32_t>(value));
        std::memcpy(p, &v, 4);
        return;
    }
    case 8: {
        const std::uint64_t v = __builtin_bswap64(value);
        std::memcpy(p, &v, 8);
        return;
    }
    default:
        for (unsigned i = width; i-- > 0;) {
            p[i] = static_cast<std::uint8_t>(value);
            value >>= 8;
        }
        return;
    }
}

} // namespace brimvale::bplist
