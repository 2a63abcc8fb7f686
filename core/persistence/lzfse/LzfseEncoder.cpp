#include "core/persistence/lzfse/LzfseEncoder.h"

#include "core/persistence/lzfse/LittleEndian.h"
#include "core/persistence/lzfse/LzfseBlockEncoder.h"
#include "core/persistence/lzfse/LzfseFormat.h"
#include "core/persistence/lzfse/RawBlock.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstring>
#include <memory>
#include <stdexcept>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace brimvale::lzfse {

namespace {

constexpr std::int32_t kMinMatch = 4;
constexpr std::int32_t kGoodMatch = 40;                    // emitted without waiting
constexpr std::int32_t kMaxMatchLength = 100 * kMaxMValue; // before backward extension
constexpr std::int32_t kLiteralBacklog = 8 * kMaxLValue;   // literal run that forces output
constexpr std::int32_t kMaxDistance = kMaxDValue;
// Block fill limits, kept a little below the format's (the literal count gets padded).
constexpr std::size_t kBlockTriples = kMaxMatchCount - 8;
constexpr std::size_t kBlockLiterals = kMaxLiteralCount - 16;

constexpr unsigned kHashBits = 14;
constexpr std::int32_t kInvalidPosition = -4 * kMaxDistance; // farther back than any distance

// Four most recent positions whose first four bytes hash alike, with those bytes.
struct alignas(32) HashLine {
    std::int32_t positions[4];
    std::uint32_t values[4];
};

// Makes (position, value) the line's most recent entry, dropping its oldest.
inline void pushFront(HashLine& line, std::int32_t position, std::uint32_t value) {
#if defined(__SSE2__)
    void* positions = line.positions;
    void* values = line.values;
    const __m128i oldPositions = _mm_load_si128(static_cast<const __m128i*>(positions));
    const __m128i oldValues = _mm_load_si128(static_cast<const __m128i*>(values));
    _mm_store_si128(static_cast<__m128i*>(positions),
                    _mm_or_si128(_mm_slli_si128(oldPositions, 4), _mm_cvtsi32_si128(position)));
    _mm_store_si128(
        static_cast<__m128i*>(values),
        _mm_or_si128(_mm_slli_si128(oldValues, 4), _mm_cvtsi32_si128(static_cast<int>(value))));
#else
    line = {{position, line.positions[0], line.positions[1], line.positions[2]},
            {value, line.values[0], line.values[1], line.values[2]}};
#endif
}

// Bit i is set if entry i holds `value` and is near enough to `position`.
inline unsigned candidateWays(const HashLine& line, std::int32_t position, std::uint32_t value) {
#if defined(__SSE2__)
    const void* positions = line.positions;
    const void* values = line.values;
    const __m128i sameValue = _mm_cmpeq_epi32(_mm_load_si128(static_cast<const __m128i*>(values)),
                                              _mm_set1_epi32(static_cast<int>(value)));
    const __m128i distances = _mm_sub_epi32(_mm_set1_epi32(position),
                                            _mm_load_si128(static_cast<const __m128i*>(positions)));
    const __m128i tooFar = _mm_cmpgt_epi32(distances, _mm_set1_epi32(kMaxDistance));
    return static_cast<unsigned>(
        _mm_movemask_ps(_mm_castsi128_ps(_mm_andnot_si128(tooFar, sameValue))));
#else
    unsigned ways = 0;
    for (unsigned way = 0; way < 4; ++way) {
        ways |=
            unsigned{line.values[way] == value && position - line.positions[way] <= kMaxDistance}
            << way;
    }
    return ways;
#endif
}

struct Match {
    std::int32_t start = 0;
    std::int32_t ref = 0;
    std::int32_t length = 0; // 0: no match
};

class LzfseEncoder {
public:
    LzfseEncoder(std::span<const std::uint8_t> input, std::vector<std::uint8_t>& out)
        : in_(input.data())
        , size_(static_cast<std::int32_t>(input.size()))
        , out_(out)
        , table_(std::make_unique_for_overwrite<HashLine[]>(std::size_t{1} << kHashBits))
        , literals_(std::make_unique_for_overwrite<std::uint8_t[]>(kMaxLiteralCount))
        , triples_(std::make_unique_for_overwrite<LzfseTriple[]>(kMaxMatchCount)) {}

    void encode();

private:
    std::int32_t matchLength(std::int32_t ref, std::int32_t position) const;
    void consider(std::int32_t position, std::uint32_t value, const HashLine& line);
    void emitMatch(const Match& match);
    void emitLiterals(std::int32_t count) {
        emitMatch({literalStart_ + count, literalStart_ + count - 1, 0});
    }
    bool queueMatch(const Match& match);
    void flushBlock();

    const std::uint8_t* in_;
    std::int32_t size_;
    std::vector<std::uint8_t>& out_;
    std::unique_ptr<HashLine[]> table_;

    Match pending_;                 // waits to see whether the next positions offer a longer match
    std::int32_t literalStart_ = 0; // first input byte not covered by queued triples
    std::int32_t blockStart_ = 0;   // first input byte of the block being filled

    std::unique_ptr<std::uint8_t[]> literals_; // literal bytes of the block being filled
    std::size_t literalCount_ = 0;
    std::unique_ptr<LzfseTriple[]> triples_;
    std::size_t tripleCount_ = 0;
    LzfseBlockEncoder blockEncoder_;
};

void LzfseEncoder::encode() {
    std::fill_n(table_.get(), std::size_t{1} << kHashBits,
                HashLine{{kInvalidPosition, kInvalidPosition, kInvalidPosition, kInvalidPosition},
                         {0, 0, 0, 0}});
    for (std::int32_t p = 0; p < size_ - 8; ++p) {
        const std::uint32_t value = loadLe32(in_ + p);
        HashLine& line = table_[(value * 2654435761u) >> (32 - kHashBits)];
        if (p >= literalStart_) {
            consider(p, value, line);
        }
        pushFront(line, p, value);
    }
    if (pending_.length > 0) {
        emitMatch(pending_);
    }
    if (literalStart_ < size_) {
        emitLiterals(size_ - literalStart_);
    }
    if (tripleCount_ > 0) {
        flushBlock();
    }
}

// Length of the match at `position` with an earlier copy at `ref`, whose first four bytes are
// known to be equal. Stops 8 bytes before the end of the input (give or take the last word).
std::int32_t LzfseEncoder::matchLength(std::int32_t ref, std::int32_t position) const {
    const std::int32_t limit = size_ - position - 8;
    std::int32_t length = kMinMatch;
    while (length < limit) {
        const std::uint64_t diff = loadLe64(in_ + ref + length) ^ loadLe64(in_ + position + length);
        if (diff != 0) {
            return length + std::countr_zero(diff) / 8;
        }
        length += 8;
    }
    return length;
}

void LzfseEncoder::consider(std::int32_t position, std::uint32_t value, const HashLine& line) {
    Match match;
    for (unsigned ways = candidateWays(line, position, value); ways != 0; ways &= ways - 1) {
        const int way = std::countr_zero(ways);
        const std::int32_t length = matchLength(line.positions[way], position);
        if (length > match.length) {
            match = {position, line.positions[way], length};
        }
    }

    if (match.length == 0) {
        // Keep literal runs bounded: flush what waits, or some literals.
        if (position - literalStart_ > kLiteralBacklog) {
            if (pending_.length > 0) {
                emitMatch(pending_);
                pending_ = {};
            } else {
                emitLiterals(static_cast<std::int32_t>(kMaxLValue));
            }
        }
        return;
    }

    match.length = std::min(match.length, kMaxMatchLength);
    while (match.start > literalStart_ && match.ref > 0 &&
           in_[match.start - 1] == in_[match.ref - 1]) {
        --match.start;
        --match.ref;
        ++match.length;
    }

    if (match.length >= kGoodMatch) {
        emitMatch(match);
        pending_ = {};
    } else if (pending_.length == 0) {
        pending_ = match;
    } else if (pending_.start + pending_.length <= match.start) {
        emitMatch(pending_);
        pending_ = match;
    } else {
        // They overlap: keep the longer one.
        emitMatch(match.length > pending_.length ? match : pending_);
        pending_ = {};
    }
}

void LzfseEncoder::emitMatch(const Match& match) {
    if (!queueMatch(match)) {
        flushBlock();
        if (!queueMatch(match)) {
            // Cannot happen: an empty block holds any match the finder produces.
            throw std::logic_error("LZFSE encoder: match does not fit an empty block");
        }
    }
}

// Queues the triples of `match` and the literals before it, or nothing if the block is too
// full for all of them.
bool LzfseEncoder::queueMatch(const Match& match) {
    const std::size_t savedTriples = tripleCount_;
    const std::size_t savedLiterals = literalCount_;
    std::int32_t cursor = literalStart_;
    const auto queue = [&](std::int32_t l, std::int32_t m, std::int32_t d) {
        if (tripleCount_ + 1 > kBlockTriples ||
            literalCount_ + static_cast<std::size_t>(l) > kBlockLiterals) {
            return false;
        }
        std::memcpy(literals_.get() + literalCount_, in_ + cursor, static_cast<std::size_t>(l));
        literalCount_ += static_cast<std::size_t>(l);
        cursor += l + m;
        triples_[tripleCount_++] = {static_cast<std::uint32_t>(l), static_cast<std::uint32_t>(m),
                                    static_cast<std::uint32_t>(d)};
        return true;
    };

    std::int32_t l = match.start - literalStart_;
    std::int32_t m = match.length;
    const std::int32_t d = match.start - match.ref;
    bool queued = true;
    while (queued && l > static_cast<std::int32_t>(kMaxLValue)) {
        queued = queue(static_cast<std::int32_t>(kMaxLValue), 0, 1);
        l -= static_cast<std::int32_t>(kMaxLValue);
    }
    while (queued && m > static_cast<std::int32_t>(kMaxMValue)) {
        queued = queue(l, static_cast<std::int32_t>(kMaxMValue), d);
        l = 0;
        m -= static_cast<std::int32_t>(kMaxMValue);
    }
    if (queued && (l > 0 || m > 0)) {
        queued = queue(l, m, d);
    }
    if (!queued) {
        tripleCount_ = savedTriples;
        literalCount_ = savedLiterals;
        return false;
    }
    literalStart_ = cursor;
    return true;
}

void LzfseEncoder::flushBlock() {
    const auto rawSize = static_cast<std::size_t>(literalStart_ - blockStart_);
    const std::size_t start = out_.size();
    blockEncoder_.append({literals_.get(), kMaxLiteralCount}, literalCount_,
                         {triples_.get(), tripleCount_}, out_);
    if (out_.size() - start >= kRawBlockHeaderSize + rawSize) {
        out_.resize(start);
        appendRawBlock({in_ + blockStart_, rawSize}, out_);
    }
    blockStart_ = literalStart_;
    literalCount_ = 0;
    tripleCount_ = 0;
}

} // namespace

void appendLzfseBlocks(std::span<const std::uint8_t> input, std::vector<std::uint8_t>& out) {
    assert(input.size() <= (std::size_t{1} << 30));
    LzfseEncoder(input, out).encode();
}

} // namespace brimvale::lzfse
