#pragma once

#include "core/persistence/lzfse/DecodeOutput.h"

#include <cstddef>
#include <cstdint>
#include <span>

// Decodes LZVN blocks: a byte-oriented LZ77 code whose opcodes carry literal runs, matches and
// distances in one to three bytes.

namespace brimvale::lzfse {

// Decodes the LZVN block at `block` (the rest of the stream, starting with the block's magic)
// and appends its output. Returns the block's size in the stream. Throws CorruptDataError.
std::size_t decodeLzvnBlock(std::span<const std::uint8_t> block, std::size_t blockOffset,
                            DecodeOutput& output);

} // namespace brimvale::lzfse
