#include "core/persistence/lzfse/LzvnDecoder.h"

#include "core/persistence/lzfse/CopyBytes.h"
#include "core/persistence/lzfse/LittleEndian.h"
#include "core/persistence/lzfse/LzfseErrors.h"
#include "core/persistence/lzfse/LzfseFormat.h"

#include <array>
#include <cstring>
#include <string>

namespace brimvale::lzfse {

namespace {

enum class OpcodeKind : std::uint8_t {
    SmallDistance,    // LLMMMDDD + 1 byte
    LargeDistance,    // LLMMM111 + u16
    PreviousDistance, // LLMMM110
    MediumDistance,   // 101LLMMM + u16
    SmallLiteral,     // 1110LLLL
    LargeLiteral,     // 11100000 + 1 byte
    SmallMatch,       // 1111MMMM
    LargeMatch,       // 11110000 + 1 byte
    EndOfStream,      // 00000110 + 7 bytes
    Nop,
    Undefined,
};

constexpr OpcodeKind classify(std::uint8_t op) {
    if (op == 0x06) {
        return OpcodeKind::EndOfStream;
    }
    if (op == 0x0E || op == 0x16) {
        return OpcodeKind::Nop;
    }
    if ((op >= 0x1E && op <= 0x3E && (op & 7) == 6) || (op >= 0x70 && op <= 0x7F) ||
        (op >= 0xD0 && op <= 0xDF)) {
        return OpcodeKind::Undefined;
    }
    if (op >= 0xA0 && op <= 0xBF) {
        return OpcodeKind::MediumDistance;
    }
    if (op == 0xE0) {
        return OpcodeKind::LargeLiteral;
    }
    if (op > 0xE0 && op <= 0xEF) {
        return OpcodeKind::SmallLiteral;
    }
    if (op == 0xF0) {
        return OpcodeKind::LargeMatch;
    }
    if (op > 0xF0) {
        return OpcodeKind::SmallMatch;
    }
    if ((op & 7) == 7) {
        return OpcodeKind::LargeDistance;
    }
    if ((op & 7) == 6) {
        return OpcodeKind::PreviousDistance;
    }
    return OpcodeKind::SmallDistance;
}

constexpr auto kOpcodeKinds = [] {
    std::array<OpcodeKind, 256> kinds{};
    for (unsigned op = 0; op < 256; ++op) {
        kinds[op] = classify(static_cast<std::uint8_t>(op));
    }
    return kinds;
}();

} // namespace

std::size_t decodeLzvnBlock(std::span<const std::uint8_t> block, std::size_t blockOffset,
                            DecodeOutput& output) {
    if (block.size() < kLzvnBlockHeaderSize) {
        throwTruncated("block header", blockOffset);
    }
    const std::uint32_t rawSize = loadLe32(block.data() + 4);
    const std::uint32_t payloadSize = loadLe32(block.data() + 8);
    if (block.size() - kLzvnBlockHeaderSize < payloadSize) {
        throwTruncated("block payload", blockOffset);
    }
    if (rawSize == 0 || rawSize > kLzvnMaxExpansion * payloadSize) {
        throwBlockError(blockOffset, "LZVN block size " + std::to_string(rawSize) +
                                         " does not fit its payload of " +
                                         std::to_string(payloadSize) + " bytes");
    }
    output.reserve(rawSize);

    const std::uint8_t* in = block.data() + kLzvnBlockHeaderSize;
    const std::uint8_t* const inEnd = in + payloadSize;
    std::uint8_t* const outBegin = output.data();
    std::uint8_t* out = outBegin + output.size();
    std::uint8_t* const outEnd = out + rawSize;
    std::size_t distance = 0; // none yet in this block

    const auto fail = [&](const std::string& problem) {
        throwBlockError(blockOffset,
                        problem + " at payload offset " +
                            std::to_string(in - (block.data() + kLzvnBlockHeaderSize)));
    };

    while (true) {
        if (in == inEnd) {
            fail("LZVN payload ends without an end opcode");
        }
        const std::uint8_t op = *in;
        std::size_t opcodeSize = 1;
        std::size_t literalLength = 0;
        std::size_t matchLength = 0;
        const std::size_t left = static_cast<std::size_t>(inEnd - in);
        switch (kOpcodeKinds[op]) {
        case OpcodeKind::SmallDistance:
            opcodeSize = 2;
            if (left < opcodeSize) {
                fail("LZVN opcode truncated");
            }
            literalLength = op >> 6;
            matchLength = ((op >> 3) & 7) + 3;
            distance = (std::size_t{op & 7u} << 8) | in[1];
            break;
        case OpcodeKind::LargeDistance:
            opcodeSize = 3;
            if (left < opcodeSize) {
                fail("LZVN opcode truncated");
            }
            literalLength = op >> 6;
            matchLength = ((op >> 3) & 7) + 3;
            distance = loadLe16(in + 1);
            break;
        case OpcodeKind::PreviousDistance:
            literalLength = op >> 6;
            matchLength = ((op >> 3) & 7) + 3;
            break;
        case OpcodeKind::MediumDistance: {
            opcodeSize = 3;
            if (left < opcodeSize) {
                fail("LZVN opcode truncated");
            }
            const std::uint16_t word = loadLe16(in + 1);
            literalLength = (op >> 3) & 3;
            matchLength = ((std::size_t{op & 7u} << 2) | (word & 3u)) + 3;
            distance = word >> 2;
            break;
        }
        case OpcodeKind::SmallLiteral:
            literalLength = op & 15u;
            break;
        case OpcodeKind::LargeLiteral:
            opcodeSize = 2;
            if (left < opcodeSize) {
                fail("LZVN opcode truncated");
            }
            literalLength = in[1] + 16u;
            break;
        case OpcodeKind::SmallMatch:
            matchLength = op & 15u;
            break;
        case OpcodeKind::LargeMatch:
            opcodeSize = 2;
            if (left < opcodeSize) {
                fail("LZVN opcode truncated");
            }
            matchLength = in[1] + 16u;
            break;
        case OpcodeKind::EndOfStream:
            if (left != 8) {
                fail("LZVN end opcode is not the last 8 payload bytes");
            }
            if (out != outEnd) {
                fail("LZVN block produces " + std::to_string(out - (outEnd - rawSize)) +
                     " bytes instead of " + std::to_string(rawSize));
            }
            output.commit(rawSize);
            return kLzvnBlockHeaderSize + payloadSize;
        case OpcodeKind::Nop:
            ++in;
            continue;
        case OpcodeKind::Undefined:
            fail("undefined LZVN opcode " + std::to_string(op));
        }

        if (left - opcodeSize < literalLength) {
            fail("LZVN literals truncated");
        }
        if (literalLength + matchLength > static_cast<std::size_t>(outEnd - out)) {
            fail("LZVN block produces more than its size of " + std::to_string(rawSize) + " bytes");
        }
        in += opcodeSize;
        // The payload has no slack after it, so copy the literals exactly.
        std::memcpy(out, in, literalLength);
        in += literalLength;
        out += literalLength;
        if (matchLength > 0) {
            if (distance == 0 || distance > static_cast<std::size_t>(out - outBegin)) {
                fail("LZVN match distance " + std::to_string(distance) + " is out of range");
            }
            copyMatch(out, distance, matchLength);
            out += matchLength;
        }
    }
}

} // namespace brimvale::lzfse
