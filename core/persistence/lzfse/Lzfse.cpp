#include "core/persistence/lzfse/Lzfse.h"

#include "core/persistence/lzfse/DecodeOutput.h"
#include "core/persistence/lzfse/LittleEndian.h"
#include "core/persistence/lzfse/LzfseBlockDecoder.h"
#include "core/persistence/lzfse/LzfseEncoder.h"
#include "core/persistence/lzfse/LzfseErrors.h"
#include "core/persistence/lzfse/LzfseFormat.h"
#include "core/persistence/lzfse/LzfseSegment.h"
#include "core/persistence/lzfse/LzfseStreamCompressor.h"
#include "core/persistence/lzfse/LzvnDecoder.h"
#include "core/persistence/lzfse/LzvnEncoder.h"
#include "core/persistence/lzfse/RawBlock.h"
#include "core/support/CorruptDataError.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>

namespace brimvale {

using namespace lzfse;

namespace {

// Inputs below this size go into one LZVN or raw block: LZFSE's frequency tables would cost
// more than they save.
constexpr std::size_t kLzfseMinInput = 4096;
// Below this, not even LZVN pays off.
constexpr std::size_t kLzvnMinInput = 8;
// Output memory set aside up front is at most this many times the stream's size.
constexpr std::uint64_t kMaxReservedRatio = 64;
// Inputs of twice this size or more are cut into pieces of this size, compressed side by side by
// LzfseStreamCompressor; each piece is blocks of its own, which costs no measurable ratio.
constexpr std::size_t kParallelPieceSize = std::size_t{1} << 20;

} // namespace

void lzfse::appendCompressedSegment(std::span<const std::uint8_t> segment,
                                    std::vector<std::uint8_t>& out) {
    if (segment.size() < kLzvnMinInput) {
        appendRawBlock(segment, out);
        return;
    }
    if (segment.size() < kLzfseMinInput) {
        const std::vector<std::uint8_t> payload = encodeLzvnPayload(segment);
        if (kLzvnBlockHeaderSize + payload.size() >= kRawBlockHeaderSize + segment.size()) {
            appendRawBlock(segment, out);
            return;
        }
        const std::size_t start = out.size();
        out.resize(start + kLzvnBlockHeaderSize);
        storeLe32(out.data() + start, kLzvnBlockMagic);
        storeLe32(out.data() + start + 4, static_cast<std::uint32_t>(segment.size()));
        storeLe32(out.data() + start + 8, static_cast<std::uint32_t>(payload.size()));
        out.insert(out.end(), payload.begin(), payload.end());
        return;
    }
    const std::size_t start = out.size();
    appendLzfseBlocks(segment, out);
    // Blocks that did not compress are raw already; one raw block saves their headers.
    if (out.size() - start > kRawBlockHeaderSize + segment.size()) {
        out.resize(start);
        appendRawBlock(segment, out);
    }
}

namespace {

// Total output the blocks of a stream announce in their headers, where their payloads can
// produce that much; the walk stops at the end-of-stream marker or at the first block that is
// not complete or not recognised (decoding reports those).
std::uint64_t announcedOutputSize(std::span<const std::uint8_t> input) {
    std::uint64_t total = 0;
    std::size_t offset = 0;
    while (input.size() - offset >= 8) {
        const std::uint8_t* block = input.data() + offset;
        const std::uint32_t rawSize = loadLe32(block + 4);
        std::uint64_t blockSize = 0;
        std::uint64_t output = 0;
        switch (loadLe32(block)) {
        case kRawBlockMagic:
            blockSize = kRawBlockHeaderSize + std::uint64_t{rawSize};
            output = rawSize;
            break;
        case kLzvnBlockMagic:
            if (input.size() - offset >= kLzvnBlockHeaderSize) {
                const std::uint32_t payloadSize = loadLe32(block + 8);
                blockSize = kLzvnBlockHeaderSize + std::uint64_t{payloadSize};
                output = std::min(std::uint64_t{rawSize}, kLzvnMaxExpansion * payloadSize);
            }
            break;
        case kLzfseV1BlockMagic:
        case kLzfseV2BlockMagic:
            if (const auto extent = peekLzfseBlockExtent(input.subspan(offset))) {
                blockSize = extent->streamSize;
                output = extent->maxOutput;
            }
            break;
        default:
            break;
        }
        if (blockSize == 0 || blockSize > input.size() - offset) {
            break;
        }
        total += output;
        offset += static_cast<std::size_t>(blockSize);
    }
    return total;
}

std::string hex32(std::uint32_t value) {
    char text[11];
    std::snprintf(text, sizeof text, "0x%08x", value);
    return text;
}

} // namespace

std::vector<std::uint8_t> lzfseCompress(std::span<const std::uint8_t> input) {
    std::vector<std::uint8_t> out;
    out.reserve(input.size() / 4 + 64);
    if (input.size() < 2 * kParallelPieceSize) {
        if (input.empty()) {
            appendRawBlock(input, out);
        } else {
            appendCompressedSegment(input, out);
        }
        const std::size_t end = out.size();
        out.resize(end + 4);
        storeLe32(out.data() + end, kEndOfStreamMagic);
        return out;
    }
    LzfseStreamCompressor compressor([&out](std::span<const std::uint8_t> bytes) {
        out.insert(out.end(), bytes.begin(), bytes.end());
    });
    for (std::size_t offset = 0; offset < input.size(); offset += kParallelPieceSize) {
        const auto source =
            input.subspan(offset, std::min(kParallelPieceSize, input.size() - offset));
        std::vector<std::uint8_t> piece = compressor.emptyPiece();
        piece.assign(source.begin(), source.end());
        compressor.compress(std::move(piece));
    }
    compressor.finish();
    return out;
}

std::vector<std::uint8_t> lzfseDecompress(std::span<const std::uint8_t> input,
                                          std::size_t outputLimit) {
    if (input.empty()) {
        throw CorruptDataError("LZFSE stream is empty");
    }
    // Set aside memory for the output the blocks announce, so that it never moves while it
    // grows; but no more than a generous ratio of the input, as a damaged stream may announce
    // much more than it holds. Beyond that ratio the output grows as it goes.
    DecodeOutput output(outputLimit, std::min<std::uint64_t>(announcedOutputSize(input),
                                                             kMaxReservedRatio * input.size()));
    std::unique_ptr<LzfseBlockDecoder> lzfseDecoder; // made for the first LZFSE block
    std::size_t offset = 0;
    while (true) {
        const std::span<const std::uint8_t> block = input.subspan(offset);
        if (block.size() < 4) {
            throwTruncated("block magic (no end-of-stream marker)", offset);
        }
        const std::uint32_t magic = loadLe32(block.data());
        switch (magic) {
        case kEndOfStreamMagic:
            return output.take();
        case kRawBlockMagic: {
            if (block.size() < kRawBlockHeaderSize) {
                throwTruncated("block header", offset);
            }
            const std::uint32_t rawSize = loadLe32(block.data() + 4);
            if (block.size() - kRawBlockHeaderSize < rawSize) {
                throwTruncated("block payload", offset);
            }
            output.reserve(rawSize);
            std::copy_n(block.data() + kRawBlockHeaderSize, rawSize, output.data() + output.size());
            output.commit(rawSize);
            offset += kRawBlockHeaderSize + rawSize;
            break;
        }
        case kLzvnBlockMagic:
            offset += decodeLzvnBlock(block, offset, output);
            break;
        case kLzfseV1BlockMagic:
        case kLzfseV2BlockMagic:
            if (!lzfseDecoder) {
                lzfseDecoder = std::make_unique_for_overwrite<LzfseBlockDecoder>();
            }
            offset += lzfseDecoder->decode(block, offset, output);
            break;
        default:
            throw CorruptDataError("LZFSE stream has an unknown block magic " + hex32(magic) +
                                   " at offset " + std::to_string(offset));
        }
    }
}

} // namespace brimvale
