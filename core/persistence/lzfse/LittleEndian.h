#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

// Unaligned little-endian loads and stores, the byte order of every LZFSE field.

namespace brimvale::lzfse {

template <typename T> inline T fromLittleEndian(T value) {
    if constexpr (std::endian::native == std::endian::big) {
        if constexpr (sizeof(T) == 2) {
            return static_cast<T>(__builtin_bswap16(value));
        } else if constexpr (sizeof(T) == 4) {
            return static_cast<T>(__builtin_bswap32(value));
        } else {
            return static_cast<T>(__builtin_bswap64(value));
        }
    }
    return value;
}

inline std::uint16_t loadLe16(const std::uint8_t* p) {
    std::uint16_t value;
    std::memcpy(&value, p, sizeof value);
    return fromLittleEndian(value);
}

inline std::uint32_t loadLe32(const std::uint8_t* p) {
    std::uint32_t value;
    std::memcpy(&value, p, sizeof value);
    return fromLittleEndian(value);
}

inline std::uint64_t loadLe64(const std::uint8_t* p) {
    std::uint64_t value;
    std::memcpy(&value, p, sizeof value);
    return fromLittleEndian(value);
}

inline void storeLe16(std::uint8_t* p, std::uint16_t value) {
    value = fromLittleEndian(value);
    std::memcpy(p, &value, sizeof value);
}

inline void storeLe32(std::uint8_t* p, std::uint32_t value) {
    value = fromLittleEndian(value);
    std::memcpy(p, &value, sizeof value);
}

inline void storeLe64(std::uint8_t* p, std::uint64_t value) {
    value = fromLittleEndian(value);
    std::memcpy(p, &value, sizeof value);
}

} // namespace brimvale::lzfse
