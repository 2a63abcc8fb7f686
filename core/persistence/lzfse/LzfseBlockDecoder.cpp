#include "core/persistence/lzfse/LzfseBlockDecoder.h"

#include "core/persistence/lzfse/CopyBytes.h"
#include "core/persistence/lzfse/FseBitStream.h"
#include "core/persistence/lzfse/LzfseErrors.h"

#include <string>

namespace brimvale::lzfse {

namespace {

// Reads one L, M or D value and moves the state on.
inline std::uint32_t decodeValue(FseBitReader& reader, const ValueDecoderEntry& entry,
                                 std::uint32_t& state) {
    const std::uint64_t bits = reader.read(entry.totalBits);
    state = static_cast<std::uint32_t>(entry.delta +
                                       static_cast<std::int32_t>(bits >> entry.extraBits));
    return static_cast<std::uint32_t>(entry.base) +
           static_cast<std::uint32_t>(bits & ((std::uint64_t{1} << entry.extraBits) - 1));
}

inline std::uint8_t decodeLiteral(FseBitReader& reader, const LiteralDecoderEntry& entry,
                                  std::uint32_t& state) {
    state = static_cast<std::uint32_t>(entry.delta +
                                       static_cast<std::int32_t>(reader.read(entry.bits)));
    return entry.symbol;
}

// A table is only needed when the block decodes symbols from it; then its frequencies must
// give every state an owner.
void checkTableComplete(std::size_t blockOffset, const char* table,
                        std::span<const std::uint16_t> frequencies, std::uint32_t states) {
    const std::uint32_t sum = frequencySum(frequencies);
    if (sum != states) {
        throwBlockError(blockOffset, std::string(table) + " frequencies sum to " +
                                         std::to_string(sum) + ", not " + std::to_string(states));
    }
}

} // namespace

std::size_t LzfseBlockDecoder::decode(std::span<const std::uint8_t> block, std::size_t blockOffset,
                                      DecodeOutput& output) {
    const LzfseBlockHeader header = parseLzfseBlockHeader(block, blockOffset);
    const std::uint64_t blockSize =
        std::uint64_t{header.headerSize} + header.literalPayloadSize + header.lmdPayloadSize;
    if (block.size() < blockSize) {
        throwTruncated("block payload", blockOffset);
    }
    // Checked before reserving room, so a forged size cannot make us allocate much.
    if (header.rawSize > maxLzfseBlockOutput(header.literalCount, header.matchCount)) {
        throwBlockError(blockOffset, "block size " + std::to_string(header.rawSize) +
                                         " is more than its literals and triples can produce");
    }
    output.reserve(header.rawSize);
    decodeLiterals(header, block.data() + header.headerSize, blockOffset);
    decodeTriples(header, block.data() + header.headerSize + header.literalPayloadSize, blockOffset,
                  output);
    return static_cast<std::size_t>(blockSize);
}

void LzfseBlockDecoder::decodeLiterals(const LzfseBlockHeader& header, const std::uint8_t* payload,
                                       std::size_t blockOffset) {
    FseBitReader reader;
    if (!reader.start(payload, header.literalPayloadSize, header.literalBits)) {
        throwBlockError(blockOffset, "literal stream has a bad size or padding");
    }
    if (header.literalCount == 0) {
        return;
    }
    checkTableComplete(blockOffset, "literal", header.literalFrequencies, kLiteralStates);
    buildLiteralDecoderTable(header.literalFrequencies, literalTable_);

    std::uint32_t state0 = header.literalStates[0];
    std::uint32_t state1 = header.literalStates[1];
    std::uint32_t state2 = header.literalStates[2];
    std::uint32_t state3 = header.literalStates[3];
    // Literals come in groups of four sharing the stream; a count that is not a multiple of four
    // still decodes whole groups (the buffer has room for them).
    std::uint8_t* out = literals_.data();
    std::uint8_t* const end = out + header.literalCount;
    for (; out < end; out += 4) {
        reader.refill();
        const LiteralDecoderEntry& e0 = literalTable_[state0];
        const LiteralDecoderEntry& e1 = literalTable_[state1];
        const LiteralDecoderEntry& e2 = literalTable_[state2];
        const LiteralDecoderEntry& e3 = literalTable_[state3];
        if (unsigned{e0.bits} + e1.bits + e2.bits + e3.bits > reader.available()) {
            throwBlockError(blockOffset, "literal stream ends early");
        }
        out[0] = decodeLiteral(reader, e0, state0);
        out[1] = decodeLiteral(reader, e1, state1);
        out[2] = decodeLiteral(reader, e2, state2);
        out[3] = decodeLiteral(reader, e3, state3);
    }
}

void LzfseBlockDecoder::decodeTriples(const LzfseBlockHeader& header, const std::uint8_t* payload,
                                      std::size_t blockOffset, DecodeOutput& output) {
    FseBitReader reader;
    // The stream starts with 8 zero bytes (7 suffice when no bit is padding).
    if (header.lmdPayloadSize < (header.lmdBits < 0 ? 8u : 7u) ||
        !reader.start(payload, header.lmdPayloadSize, header.lmdBits)) {
        throwBlockError(blockOffset, "L/M/D stream has a bad size or padding");
    }
    if (header.matchCount > 0) {
        checkTableComplete(blockOffset, "L", header.lFrequencies, kLStates);
        checkTableComplete(blockOffset, "M", header.mFrequencies, kMStates);
        checkTableComplete(blockOffset, "D", header.dFrequencies, kDStates);
        buildValueDecoderTable(header.lFrequencies, kLExtraBits, kLBase, lTable_);
        buildValueDecoderTable(header.mFrequencies, kMExtraBits, kMBase, mTable_);
        buildValueDecoderTable(header.dFrequencies, kDExtraBits, kDBase, dTable_);
    }

    std::uint8_t* const outBegin = output.data();
    std::uint8_t* out = outBegin + output.size();
    std::uint8_t* const blockEnd = out + header.rawSize;
    const std::uint8_t* literal = literals_.data();
    const std::uint8_t* const literalEnd = literal + header.literalCount;
    std::uint32_t lState = header.lState;
    std::uint32_t mState = header.mState;
    std::uint32_t dState = header.dState;
    std::size_t distance = 0; // none yet in this block

    for (std::uint32_t i = 0; i < header.matchCount; ++i) {
        reader.refill();
        const ValueDecoderEntry& lEntry = lTable_[lState];
        const ValueDecoderEntry& mEntry = mTable_[mState];
        const ValueDecoderEntry& dEntry = dTable_[dState];
        if (unsigned{lEntry.totalBits} + mEntry.totalBits + dEntry.totalBits > reader.available()) {
            throwBlockError(blockOffset, "L/M/D stream ends early");
        }
        const std::size_t literalLength = decodeValue(reader, lEntry, lState);
        const std::size_t matchLength = decodeValue(reader, mEntry, mState);
        const std::size_t newDistance = decodeValue(reader, dEntry, dState);
        // Distance 0 repeats the previous triple's distance.
        if (newDistance != 0) {
            distance = newDistance;
        } else if (distance == 0) {
            throwBlockError(blockOffset, "first triple repeats a distance");
        }
        if (literalLength > static_cast<std::size_t>(literalEnd - literal)) {
            throwBlockError(blockOffset, "triples use more literals than the block holds");
        }
        if (literalLength + matchLength > static_cast<std::size_t>(blockEnd - out)) {
            throwBlockError(blockOffset, "triples produce more than the block's size of " +
                                             std::to_string(header.rawSize) + " bytes");
        }
        copyLiterals(out, literal, literalLength);
        out += literalLength;
        literal += literalLength;
        if (distance > static_cast<std::size_t>(out - outBegin)) {
            throwBlockError(blockOffset, "match distance " + std::to_string(distance) +
                                             " reaches before the start of the output");
        }
        copyMatch(out, distance, matchLength);
        out += matchLength;
    }
    if (out != blockEnd) {
        throwBlockError(blockOffset, "triples produce less than the block's size of " +
                                         std::to_string(header.rawSize) + " bytes");
    }
    output.commit(header.rawSize);
}

} // namespace brimvale::lzfse
