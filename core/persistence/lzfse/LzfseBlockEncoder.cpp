#include "core/persistence/lzfse/LzfseBlockEncoder.h"

#include "core/persistence/lzfse/FseBitStream.h"
#include "core/persistence/lzfse/FseTables.h"
#include "core/persistence/lzfse/LzfseBlockHeader.h"
#include "core/persistence/lzfse/LzfseFormat.h"

#include <array>
#include <cassert>

namespace brimvale::lzfse {

namespace {

using TripleCode = LzfseBlockEncoder::TripleCode;

// Worst case of the literal stream: 10 bits per literal, plus the writer's 8-byte stores.
constexpr std::size_t literalPayloadBound(std::size_t literalCount) {
    return literalCount * 10 / 8 + 16;
}

// Worst case of the L/M/D stream: 8 zero bytes, 54 bits per triple, the writer's stores.
constexpr std::size_t lmdPayloadBound(std::size_t tripleCount) {
    return 8 + tripleCount * 54 / 8 + 16;
}

void countLiterals(std::span<const std::uint8_t> literals, LzfseBlockHeader& header) {
    std::array<std::uint32_t, kLiteralSymbols> counts{};
    for (const std::uint8_t literal : literals) {
        ++counts[literal];
    }
    normalizeFrequencies(counts, kLiteralStates, header.literalFrequencies);
}

void codeTriples(std::span<const LzfseTriple> triples, std::span<TripleCode> codes,
                 LzfseBlockHeader& header) {
    std::array<std::uint32_t, kLSymbols> lCounts{};
    std::array<std::uint32_t, kMSymbols> mCounts{};
    std::array<std::uint32_t, kDSymbols> dCounts{};
    std::uint32_t previousDistance = 0;
    for (std::size_t i = 0; i < triples.size(); ++i) {
        const LzfseTriple& triple = triples[i];
        // A distance equal to the previous triple's is coded as 0.
        const std::uint32_t distance = triple.distance == previousDistance ? 0 : triple.distance;
        previousDistance = triple.distance;
        TripleCode& code = codes[i];
        code.lSymbol = static_cast<std::uint8_t>(lSymbolOf(triple.literalLength));
        code.mSymbol = static_cast<std::uint8_t>(mSymbolOf(triple.matchLength));
        code.dSymbol = static_cast<std::uint8_t>(dSymbolOf(distance));
        code.lExtra = triple.literalLength - static_cast<std::uint32_t>(kLBase[code.lSymbol]);
        code.mExtra = triple.matchLength - static_cast<std::uint32_t>(kMBase[code.mSymbol]);
        code.dExtra = distance - static_cast<std::uint32_t>(kDBase[code.dSymbol]);
        ++lCounts[code.lSymbol];
        ++mCounts[code.mSymbol];
        ++dCounts[code.dSymbol];
        header.rawSize += triple.literalLength + triple.matchLength;
    }
    normalizeFrequencies(lCounts, kLStates, header.lFrequencies);
    normalizeFrequencies(mCounts, kMStates, header.mFrequencies);
    normalizeFrequencies(dCounts, kDStates, header.dFrequencies);
}

void encodeLiterals(std::span<const std::uint8_t> literals, LzfseBlockHeader& header,
                    std::vector<std::uint8_t>& out) {
    std::array<FseEncoderEntry, kLiteralSymbols> table;
    buildEncoderTable(header.literalFrequencies, kLiteralStates, table);

    const std::size_t start = out.size();
    out.resize(start + literalPayloadBound(literals.size()));
    FseBitWriter writer(out.data() + start);
    // Four interleaved states; the decoder reads the stream backward, so the last group of four
    // literals is written first, each group from its last literal to its first.
    std::array<std::uint32_t, 4> states{};
    for (std::size_t i = literals.size(); i > 0;) {
        for (int lane = 3; lane >= 0; --lane) {
            --i;
            std::uint32_t bits;
            unsigned bitCount;
            fseEncode(states[static_cast<std::size_t>(lane)], table[literals[i]], bits, bitCount);
            writer.write(bits, bitCount);
        }
        writer.flush();
    }
    int bitsValue;
    const std::uint8_t* end = writer.finish(bitsValue);
    header.literalPayloadSize = static_cast<std::uint32_t>(end - (out.data() + start));
    header.literalBits = bitsValue;
    header.literalStates = states;
    out.resize(start + header.literalPayloadSize);
}

void encodeTriples(std::span<const TripleCode> codes, LzfseBlockHeader& header,
                   std::vector<std::uint8_t>& out) {
    std::array<FseEncoderEntry, kLSymbols> lTable;
    std::array<FseEncoderEntry, kMSymbols> mTable;
    std::array<FseEncoderEntry, kDSymbols> dTable;
    buildEncoderTable(header.lFrequencies, kLStates, lTable);
    buildEncoderTable(header.mFrequencies, kMStates, mTable);
    buildEncoderTable(header.dFrequencies, kDStates, dTable);

    const std::size_t start = out.size();
    out.resize(start + lmdPayloadBound(codes.size()));
    // The stream starts with 8 zero bytes (already zero after resize()), so that readers that
    // load whole words never reach before the payload.
    FseBitWriter writer(out.data() + start + 8);
    std::uint32_t lState = 0;
    std::uint32_t mState = 0;
    std::uint32_t dState = 0;
    std::uint32_t bits;
    unsigned bitCount;
    // Backward, each triple as D, M, L (extra bits before state bits), so that the decoder
    // reads L, M, D of the first triple first.
    for (std::size_t i = codes.size(); i > 0;) {
        const TripleCode& code = codes[--i];
        writer.write(code.dExtra, kDExtraBits[code.dSymbol]);
        fseEncode(dState, dTable[code.dSymbol], bits, bitCount);
        writer.write(bits, bitCount);
        writer.write(code.mExtra, kMExtraBits[code.mSymbol]);
        fseEncode(mState, mTable[code.mSymbol], bits, bitCount);
        writer.write(bits, bitCount);
        writer.write(code.lExtra, kLExtraBits[code.lSymbol]);
        fseEncode(lState, lTable[code.lSymbol], bits, bitCount);
        writer.write(bits, bitCount);
        writer.flush();
    }
    int bitsValue;
    const std::uint8_t* end = writer.finish(bitsValue);
    header.lmdPayloadSize = static_cast<std::uint32_t>(end - (out.data() + start));
    header.lmdBits = bitsValue;
    header.lState = lState;
    header.mState = mState;
    header.dState = dState;
    out.resize(start + header.lmdPayloadSize);
}

} // namespace

void LzfseBlockEncoder::append(std::span<std::uint8_t> literals, std::size_t literalCount,
                               std::span<const LzfseTriple> triples,
                               std::vector<std::uint8_t>& out) {
    assert(literalCount + 3 <= literals.size() && literalCount + 3 <= kMaxLiteralCount &&
           triples.size() <= kMaxMatchCount);
    while (literalCount % 4 != 0) {
        literals[literalCount++] = 0;
    }
    LzfseBlockHeader header;
    header.literalCount = static_cast<std::uint32_t>(literalCount);
    header.matchCount = static_cast<std::uint32_t>(triples.size());
    codes_.resize(triples.size());
    countLiterals(literals.first(literalCount), header);
    codeTriples(triples, codes_, header);

    // Frequency codes first, then the payloads; the packed fields describing the payloads are
    // stored last.
    const std::size_t start = out.size();
    header.headerSize = appendLzfseV2Header(header, out);
    encodeLiterals(literals.first(literalCount), header, out);
    encodeTriples(codes_, header, out);
    storeLzfseV2Fields(header, out.data() + start);
}

} // namespace brimvale::lzfse
