#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// Copy loops of the decoders. Both may write up to 15 bytes past the end of the copy (the
// destination buffers keep that much slack) and read up to 15 bytes past the end of the source.

namespace brimvale::lzfse {

inline void copyLiterals(std::uint8_t* dst, const std::uint8_t* src, std::size_t count) {
    for (std::size_t i = 0; i < count; i += 16) {
        std::memcpy(dst + i, src + i, 16);
    }
}

// Copies `count` bytes from `distance` (>= 1) bytes back; the source may overlap the
// destination, in which case the last `distance` bytes repeat.
inline void copyMatch(std::uint8_t* dst, std::size_t distance, std::size_t count) {
    const std::uint8_t* src = dst - distance;
    if (distance >= 16) {
        for (std::size_t i = 0; i < count; i += 16) {
            std::memcpy(dst + i, src + i, 16);
        }
        return;
    }
    if (distance < 8) {
        // The copied bytes repeat with period `distance`, so any multiple of it is a valid
        // distance too once that many bytes are written: widen it to 8 or more.
        const std::size_t wide = distance * ((8 + distance - 1) / distance);
        std::size_t i = 0;
        for (; i < wide && i < count; ++i) {
            dst[i] = src[i];
        }
        dst += i;
        count -= i;
        src = dst - wide;
    }
    for (std::size_t i = 0; i < count; i += 8) {
        std::memcpy(dst + i, src + i, 8);
    }
}

} // namespace brimvale::lzfse
