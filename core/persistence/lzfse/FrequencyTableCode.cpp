#include "core/persistence/lzfse/FrequencyTableCode.h"

#include <cassert>

namespace brimvale::lzfse {

namespace {

struct FrequencyCode {
    std::uint32_t pattern;
    unsigned length;
};

FrequencyCode codeOf(std::uint32_t value) {
    assert(value <= 1047);
    if (value < 2) {
        return {value << 1, 2};
    }
    if (value < 4) {
        return {1 | ((value - 2) << 2), 3};
    }
    if (value < 8) {
        return {3 | ((value - 4) << 3), 5};
    }
    if (value < 24) {
        return {7 | ((value - 8) << 4), 8};
    }
    return {15 | ((value - 24) << 4), 14};
}

} // namespace

void appendFrequencyCodes(std::span<const std::uint16_t> values, std::vector<std::uint8_t>& out) {
    std::uint32_t accumulator = 0;
    unsigned pending = 0;
    for (const std::uint16_t value : values) {
        const FrequencyCode code = codeOf(value);
        accumulator |= code.pattern << pending;
        pending += code.length;
        while (pending >= 8) {
            out.push_back(static_cast<std::uint8_t>(accumulator));
            accumulator >>= 8;
            pending -= 8;
        }
    }
    if (pending > 0) {
        out.push_back(static_cast<std::uint8_t>(accumulator));
    }
}

bool decodeFrequencyCodes(std::span<const std::uint8_t> bytes, std::span<std::uint16_t> values) {
    const std::size_t totalBits = 8 * bytes.size();
    std::size_t position = 0;
    for (std::uint16_t& value : values) {
        // The next 14 bits (the longest code); bits past the end read as zero and are rejected
        // below if a code needs them.
        std::uint32_t window = 0;
        for (std::size_t byte = position / 8, shift = 0;
             shift < 14 + position % 8 && byte < bytes.size(); ++byte, shift += 8) {
            window |= static_cast<std::uint32_t>(bytes[byte]) << shift;
        }
        window = (window >> (position % 8)) & 0x3FFF;

        unsigned length;
        if ((window & 1) == 0) {
            length = 2;
            value = static_cast<std::uint16_t>((window >> 1) & 1);
        } else if ((window & 3) == 1) {
            length = 3;
            value = static_cast<std::uint16_t>(2 + ((window >> 2) & 1));
        } else if ((window & 7) == 3) {
            length = 5;
            value = static_cast<std::uint16_t>(4 + ((window >> 3) & 3));
        } else if ((window & 15) == 7) {
            length = 8;
            value = static_cast<std::uint16_t>(8 + ((window >> 4) & 15));
        } else {
            length = 14;
            value = static_cast<std::uint16_t>(24 + ((window >> 4) & 1023));
        }
        if (position + length > totalBits) {
            return false;
        }
        position += length;
    }
    return (position + 7) / 8 == bytes.size();
}

} // namespace brimvale::lzfse
