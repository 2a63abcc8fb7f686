#pragma once

#include <cstdint>
#include <span>
#include <vector>

// The LZVN encoder, used for small inputs (a few KB) where LZFSE's tables cost more than they
// save. It follows the reference encoder's match finder and opcode choices.

namespace brimvale::lzfse {

// Returns the LZVN payload (opcodes, ending with the end opcode) of `input`, which must be
// shorter than 64 KiB.
std::vector<std::uint8_t> encodeLzvnPayload(std::span<const std::uint8_t> input);

} // namespace brimvale::lzfse
