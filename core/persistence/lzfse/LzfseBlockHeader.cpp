#include "core/persistence/lzfse/LzfseBlockHeader.h"

#include "core/persistence/lzfse/FrequencyTableCode.h"
#include "core/persistence/lzfse/FseTables.h"
#include "core/persistence/lzfse/LittleEndian.h"
#include "core/persistence/lzfse/LzfseErrors.h"

#include <algorithm>
#include <type_traits>

namespace brimvale::lzfse {

namespace {

constexpr std::size_t kFrequencyCount = kLSymbols + kMSymbols + kDSymbols + kLiteralSymbols;

std::uint32_t bitField(std::uint64_t word, unsigned first, unsigned width) {
    return static_cast<std::uint32_t>((word >> first) & ((std::uint64_t{1} << width) - 1));
}

// The frequency tables in header order: L, M, D, literals.
template <typename Header> auto frequencyTables(Header& header) {
    using Value = std::conditional_t<std::is_const_v<Header>, const std::uint16_t, std::uint16_t>;
    return std::array<std::span<Value>, 4>{header.lFrequencies, header.mFrequencies,
                                           header.dFrequencies, header.literalFrequencies};
}

void splitFrequencies(std::span<const std::uint16_t, kFrequencyCount> all,
                      LzfseBlockHeader& header) {
    auto next = all.begin();
    for (const std::span<std::uint16_t> table : frequencyTables(header)) {
        std::copy(next, next + static_cast<std::ptrdiff_t>(table.size()), table.begin());
        next += static_cast<std::ptrdiff_t>(table.size());
    }
}

LzfseBlockHeader parseV1(std::span<const std::uint8_t> block, std::size_t blockOffset) {
    if (block.size() < kLzfseV1HeaderSize) {
        throwTruncated("block header", blockOffset);
    }
    const std::uint8_t* p = block.data();
    LzfseBlockHeader header;
    header.headerSize = kLzfseV1HeaderSize;
    header.rawSize = loadLe32(p + 4);
    header.literalCount = loadLe32(p + 12);
    header.matchCount = loadLe32(p + 16);
    header.literalPayloadSize = loadLe32(p + 20);
    header.lmdPayloadSize = loadLe32(p + 24);
    header.literalBits = static_cast<std::int32_t>(loadLe32(p + 28));
    for (std::size_t i = 0; i < 4; ++i) {
        header.literalStates[i] = loadLe16(p + 32 + 2 * i);
    }
    header.lmdBits = static_cast<std::int32_t>(loadLe32(p + 40));
    header.lState = loadLe16(p + 44);
    header.mState = loadLe16(p + 46);
    header.dState = loadLe16(p + 48);
    std::array<std::uint16_t, kFrequencyCount> all;
    for (std::size_t i = 0; i < kFrequencyCount; ++i) {
        all[i] = loadLe16(p + 50 + 2 * i);
    }
    splitFrequencies(all, header);
    return header;
}

LzfseBlockHeader parseV2(std::span<const std::uint8_t> block, std::size_t blockOffset) {
    if (block.size() < kLzfseV2FixedHeaderSize) {
        throwTruncated("block header", blockOffset);
    }
    const std::uint8_t* p = block.data();
    const std::uint64_t word0 = loadLe64(p + 8);
    const std::uint64_t word1 = loadLe64(p + 16);
    const std::uint64_t word2 = loadLe64(p + 24);

    LzfseBlockHeader header;
    header.rawSize = loadLe32(p + 4);
    header.literalCount = bitField(word0, 0, 20);
    header.literalPayloadSize = bitField(word0, 20, 20);
    header.matchCount = bitField(word0, 40, 20);
    header.literalBits = static_cast<std::int32_t>(bitField(word0, 60, 3)) - 7;
    for (unsigned i = 0; i < 4; ++i) {
        header.literalStates[i] = bitField(word1, 10 * i, 10);
    }
    header.lmdPayloadSize = bitField(word1, 40, 20);
    header.lmdBits = static_cast<std::int32_t>(bitField(word1, 60, 3)) - 7;
    header.headerSize = bitField(word2, 0, 32);
    header.lState = bitField(word2, 32, 10);
    header.mState = bitField(word2, 42, 10);
    header.dState = bitField(word2, 52, 10);

    if (header.headerSize < kLzfseV2FixedHeaderSize) {
        throwBlockError(blockOffset, "header size " + std::to_string(header.headerSize) +
                                         " is smaller than its fixed part");
    }
    if (block.size() < header.headerSize) {
        throwTruncated("block header", blockOffset);
    }
    // A header without frequency codes means all frequencies are 0.
    if (header.headerSize > kLzfseV2FixedHeaderSize) {
        std::array<std::uint16_t, kFrequencyCount> all;
        if (!decodeFrequencyCodes(
                block.subspan(kLzfseV2FixedHeaderSize, header.headerSize - kLzfseV2FixedHeaderSize),
                all)) {
            throwBlockError(blockOffset, "frequency tables do not fill the header exactly");
        }
        splitFrequencies(all, header);
    }
    return header;
}

void checkLimit(std::size_t blockOffset, const char* field, std::uint32_t value,
                std::uint32_t limit) {
    if (value > limit) {
        throwBlockError(blockOffset, std::string(field) + " " + std::to_string(value) +
                                         " exceeds " + std::to_string(limit));
    }
}

void checkFrequencySum(std::size_t blockOffset, const char* table,
                       std::span<const std::uint16_t> frequencies, std::uint32_t states) {
    checkLimit(blockOffset, table, frequencySum(frequencies), states);
}

void checkHeader(const LzfseBlockHeader& header, std::size_t blockOffset, int minBits) {
    checkLimit(blockOffset, "literal count", header.literalCount, kMaxLiteralCount);
    checkLimit(blockOffset, "match count", header.matchCount, kMaxMatchCount);
    for (const std::uint32_t state : header.literalStates) {
        checkLimit(blockOffset, "literal state", state, kLiteralStates - 1);
    }
    checkLimit(blockOffset, "L state", header.lState, kLStates - 1);
    checkLimit(blockOffset, "M state", header.mState, kMStates - 1);
    checkLimit(blockOffset, "D state", header.dState, kDStates - 1);
    checkFrequencySum(blockOffset, "sum of L frequencies", header.lFrequencies, kLStates);
    checkFrequencySum(blockOffset, "sum of M frequencies", header.mFrequencies, kMStates);
    checkFrequencySum(blockOffset, "sum of D frequencies", header.dFrequencies, kDStates);
    checkFrequencySum(blockOffset, "sum of literal frequencies", header.literalFrequencies,
                      kLiteralStates);
    for (const std::int32_t bits : {header.literalBits, header.lmdBits}) {
        if (bits > 0 || bits < minBits) {
            throwBlockError(blockOffset, "bit stream padding value " + std::to_string(bits) +
                                             " is out of range");
        }
    }
}

} // namespace

LzfseBlockHeader parseLzfseBlockHeader(std::span<const std::uint8_t> block,
                                       std::size_t blockOffset) {
    const std::uint32_t magic = loadLe32(block.data());
    const bool v1 = magic == kLzfseV1BlockMagic;
    LzfseBlockHeader header = v1 ? parseV1(block, blockOffset) : parseV2(block, blockOffset);
    // v1 headers may mark a whole last byte as padding; v2 headers cannot express it.
    checkHeader(header, blockOffset, v1 ? -8 : -7);
    return header;
}

std::optional<LzfseBlockExtent> peekLzfseBlockExtent(std::span<const std::uint8_t> block) {
    if (block.size() < kLzfseV2FixedHeaderSize) {
        return std::nullopt;
    }
    const std::uint8_t* p = block.data();
    const std::uint32_t rawSize = loadLe32(p + 4);
    if (loadLe32(p) == kLzfseV1BlockMagic) {
        return LzfseBlockExtent{
            kLzfseV1HeaderSize + std::uint64_t{loadLe32(p + 20)} + loadLe32(p + 24),
            std::min<std::uint64_t>(rawSize,
                                    maxLzfseBlockOutput(loadLe32(p + 12), loadLe32(p + 16)))};
    }
    const std::uint64_t word0 = loadLe64(p + 8);
    return LzfseBlockExtent{
        std::uint64_t{bitField(loadLe64(p + 24), 0, 32)} + bitField(word0, 20, 20) +
            bitField(loadLe64(p + 16), 40, 20),
        std::min<std::uint64_t>(
            rawSize, maxLzfseBlockOutput(bitField(word0, 0, 20), bitField(word0, 40, 20)))};
}

std::uint32_t appendLzfseV2Header(const LzfseBlockHeader& header, std::vector<std::uint8_t>& out) {
    const std::size_t start = out.size();
    out.resize(start + kLzfseV2FixedHeaderSize);
    std::array<std::uint16_t, kFrequencyCount> all;
    auto next = all.begin();
    for (const std::span<const std::uint16_t> table : frequencyTables(header)) {
        next = std::copy(table.begin(), table.end(), next);
    }
    appendFrequencyCodes(all, out);
    return static_cast<std::uint32_t>(out.size() - start);
}

void storeLzfseV2Fields(const LzfseBlockHeader& header, std::uint8_t* block) {
    const auto bits = [](std::int32_t value) {
        return static_cast<std::uint64_t>(value + 7);
    };
    const std::uint64_t word0 =
        header.literalCount | (std::uint64_t{header.literalPayloadSize} << 20) |
        (std::uint64_t{header.matchCount} << 40) | (bits(header.literalBits) << 60);
    const std::uint64_t word1 =
        header.literalStates[0] | (std::uint64_t{header.literalStates[1]} << 10) |
        (std::uint64_t{header.literalStates[2]} << 20) |
        (std::uint64_t{header.literalStates[3]} << 30) |
        (std::uint64_t{header.lmdPayloadSize} << 40) | (bits(header.lmdBits) << 60);
    const std::uint64_t word2 = header.headerSize | (std::uint64_t{header.lState} << 32) |
                                (std::uint64_t{header.mState} << 42) |
                                (std::uint64_t{header.dState} << 52);
    storeLe32(block, kLzfseV2BlockMagic);
    storeLe32(block + 4, header.rawSize);
    storeLe64(block + 8, word0);
    storeLe64(block + 16, word1);
    storeLe64(block + 24, word2);
}

} // namespace brimvale::lzfse
