#pragma once

#include "core/persistence/lzfse/LittleEndian.h"
#include "core/persistence/lzfse/LzfseFormat.h"

#include <cstdint>
#include <span>
#include <vector>

// Raw blocks store bytes unchanged, for data that does not compress.

namespace brimvale::lzfse {

// `bytes` must be shorter than 4 GiB.
inline void appendRawBlock(std::span<const std::uint8_t> bytes, std::vector<std::uint8_t>& out) {
    const std::size_t start = out.size();
    out.resize(start + kRawBlockHeaderSize);
    storeLe32(out.data() + start, kRawBlockMagic);
    storeLe32(out.data() + start + 4, static_cast<std::uint32_t>(bytes.size()));
    out.insert(out.end(), bytes.begin(), bytes.end());
}

} // namespace brimvale::lzfse
