#include "core/persistence/lzfse/LzvnEncoder.h"

#include "core/persistence/lzfse/LittleEndian.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <memory>

namespace brimvale::lzfse {

namespace {

constexpr std::uint32_t kMaxDistance = 65535;
constexpr std::uint32_t kSmallDistanceLimit = 1536;   // distances below fit a 2-byte opcode
constexpr std::uint32_t kMediumDistanceLimit = 16384; // distances below fit a medium opcode
constexpr std::int32_t kLiteralBacklog = 400;         // literal run that forces output
constexpr std::uint32_t kMaxLargeLiteral = 271;
constexpr std::uint32_t kMaxLargeMatch = 271;

constexpr unsigned kHashBits = 14;
constexpr unsigned kHashWays = 4;

struct HashEntry {
    std::int32_t position;
    std::uint32_t value;
};
using HashLine = std::array<HashEntry, kHashWays>;

struct Match {
    std::int32_t begin = 0;
    std::int32_t end = 0;
    std::int32_t distance = 0;
    std::int32_t gain = 0; // bytes saved compared with literals, roughly
};

// Number of equal leading bytes (0 ... 4) of two little-endian words.
std::int32_t equalLowBytes(std::uint32_t a, std::uint32_t b) {
    const std::uint32_t diff = a ^ b;
    return diff == 0 ? 4 : std::countr_zero(diff) / 8;
}

class LzvnEncoder {
public:
    explicit LzvnEncoder(std::span<const std::uint8_t> input)
        : in_(input.data())
        , size_(static_cast<std::int32_t>(input.size())) {
        out_.reserve(input.size() + input.size() / 8 + 16);
    }

    std::vector<std::uint8_t> encode();

private:
    std::uint32_t load32(std::int32_t position) const { return loadLe32(in_ + position); }

    // Extends a candidate at `position` with `distance` whose first `equal` bytes match.
    Match measure(std::int32_t position, std::int32_t distance, std::int32_t equal) const;
    void emitLiterals(std::int32_t count);
    void emitMatch(const Match& match);
    void appendLiteralBytes(std::int32_t count);

    const std::uint8_t* in_;
    std::int32_t size_;
    std::vector<std::uint8_t> out_;
    std::int32_t literalStart_ = 0; // first input byte not yet encoded
    std::int32_t lastDistance_ = 0; // distance of the last emitted match, 0 if none
};

Match LzvnEncoder::measure(std::int32_t position, std::int32_t distance, std::int32_t equal) const {
    std::int32_t end = position + equal;
    if (equal == 4) {
        // Extend four bytes at a time while whole words match.
        std::int32_t step = 4;
        while (step == 4 && end + 4 < size_) {
            step = equalLowBytes(load32(end), load32(end - distance));
            end += step;
        }
    }
    std::int32_t begin = position;
    std::int32_t ref = position - distance;
    while (ref > 0 && begin > literalStart_ && in_[begin - 1] == in_[ref - 1]) {
        --begin;
        --ref;
    }
    return {begin, end, distance, 0};
}

std::vector<std::uint8_t> LzvnEncoder::encode() {
    auto table =
        std::make_unique_for_overwrite<std::array<HashLine, std::size_t{1} << kHashBits>>();
    // Every entry starts as position 0, so position 0 is a candidate everywhere.
    const HashEntry initial{0, load32(0)};
    for (HashLine& line : *table) {
        line.fill(initial);
    }

    Match pending;
    bool hasPending = false;
    for (std::int32_t p = 0; p < size_ - 8; ++p) {
        const std::uint32_t value = load32(p);
        const std::uint32_t hash = (((value & 0xFFFFFF) * 4161u) >> 12) & ((1u << kHashBits) - 1);
        HashLine& line = (*table)[hash];

        if (p >= literalStart_) {
            Match best;
            bool found = false;
            const auto consider = [&](Match candidate) {
                if (!found || candidate.gain > best.gain ||
                    (candidate.gain == best.gain && candidate.end > best.end + 1)) {
                    best = candidate;
                    found = true;
                }
            };
            for (const HashEntry& entry : line) {
                const std::int32_t equal = equalLowBytes(entry.value, value);
                const std::int32_t distance = p - entry.position;
                if (equal < 3 || distance < 1 ||
                    distance > static_cast<std::int32_t>(kMaxDistance)) {
                    continue;
                }
                Match candidate = measure(p, distance, equal);
                const std::int32_t length = candidate.end - candidate.begin;
                candidate.gain = distance < static_cast<std::int32_t>(kSmallDistanceLimit)
                                     ? length - 2
                                     : length - 3;
                consider(candidate);
            }
            if (lastDistance_ != 0) {
                // Repeating the last distance needs no distance bytes.
                const std::int32_t equal = equalLowBytes(load32(p - lastDistance_), value);
                if (equal >= 3) {
                    Match candidate = measure(p, lastDistance_, equal);
                    candidate.gain = candidate.end - candidate.begin - 1;
                    consider(candidate);
                }
            }

            if (!found) {
                if (p - literalStart_ >= kLiteralBacklog) {
                    if (hasPending) {
                        emitMatch(pending);
                        hasPending = false;
                    } else {
                        emitLiterals(static_cast<std::int32_t>(kMaxLargeLiteral));
                    }
                }
            } else if (!hasPending) {
                pending = best;
                hasPending = true;
            } else if (pending.end <= best.begin) {
                emitMatch(pending);
                pending = best;
            } else {
                emitMatch(best.gain > pending.gain ? best : pending);
                hasPending = false;
            }
        }

        std::copy_backward(line.begin(), line.end() - 1, line.end());
        line[0] = {p, value};
    }

    // A match still pending is dropped: the rest of the input goes out as literals.
    emitLiterals(size_ - literalStart_);
    out_.push_back(0x06);
    out_.insert(out_.end(), 7, 0);
    return std::move(out_);
}

void LzvnEncoder::appendLiteralBytes(std::int32_t count) {
    out_.insert(out_.end(), in_ + literalStart_, in_ + literalStart_ + count);
    literalStart_ += count;
}

void LzvnEncoder::emitLiterals(std::int32_t count) {
    while (count > 15) {
        const auto chunk =
            std::min<std::int32_t>(count, static_cast<std::int32_t>(kMaxLargeLiteral));
        out_.push_back(0xE0);
        out_.push_back(static_cast<std::uint8_t>(chunk - 16));
        appendLiteralBytes(chunk);
        count -= chunk;
    }
    if (count > 0) {
        out_.push_back(static_cast<std::uint8_t>(0xE0 + count));
        appendLiteralBytes(count);
    }
}

void LzvnEncoder::emitMatch(const Match& match) {
    std::int32_t literals = match.begin - literalStart_;
    std::int32_t length = match.end - match.begin;
    const std::int32_t distance = match.distance;
    // Long literal runs go first; up to three literals ride along in the match opcode.
    while (literals > 15) {
        const auto chunk =
            std::min<std::int32_t>(literals, static_cast<std::int32_t>(kMaxLargeLiteral));
        out_.push_back(0xE0);
        out_.push_back(static_cast<std::uint8_t>(chunk - 16));
        appendLiteralBytes(chunk);
        literals -= chunk;
    }
    if (literals > 3) {
        out_.push_back(static_cast<std::uint8_t>(0xE0 + literals));
        appendLiteralBytes(literals);
        literals = 0;
    }

    const std::int32_t first = std::min(length, 10 - 2 * literals);
    length -= first;
    const auto head = static_cast<std::uint8_t>(64 * literals + 8 * (first - 3));
    if (distance == lastDistance_) {
        out_.push_back(literals == 0 ? static_cast<std::uint8_t>(0xF0 + first)
                                     : static_cast<std::uint8_t>(head + 6));
    } else if (distance < static_cast<std::int32_t>(kSmallDistanceLimit)) {
        out_.push_back(static_cast<std::uint8_t>(head + (distance >> 8)));
        out_.push_back(static_cast<std::uint8_t>(distance));
    } else if (distance >= static_cast<std::int32_t>(kMediumDistanceLimit) || length == 0 ||
               first + length > 34) {
        out_.push_back(static_cast<std::uint8_t>(head + 7));
        out_.push_back(static_cast<std::uint8_t>(distance));
        out_.push_back(static_cast<std::uint8_t>(distance >> 8));
    } else {
        const std::int32_t total = first + length - 3;
        const std::int32_t word = 4 * distance + (total & 3);
        out_.push_back(static_cast<std::uint8_t>(0xA0 + 8 * literals + (total >> 2)));
        out_.push_back(static_cast<std::uint8_t>(word));
        out_.push_back(static_cast<std::uint8_t>(word >> 8));
        length = 0;
    }
    appendLiteralBytes(literals);

    while (length > 15) {
        const auto chunk =
            std::min<std::int32_t>(length, static_cast<std::int32_t>(kMaxLargeMatch));
        out_.push_back(0xF0);
        out_.push_back(static_cast<std::uint8_t>(chunk - 16));
        length -= chunk;
    }
    if (length > 0) {
        out_.push_back(static_cast<std::uint8_t>(0xF0 + length));
    }
    lastDistance_ = distance;
    literalStart_ = match.end;
}

} // namespace

std::vector<std::uint8_t> encodeLzvnPayload(std::span<const std::uint8_t> input) {
    assert(input.size() >= 8 && input.size() < 65536);
    return LzvnEncoder(input).encode();
}

} // namespace brimvale::lzfse
