#pragma once

#include "core/persistence/lzfse/LzfseErrors.h"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

// The growing output of a decoder, bounded by the caller's limit. Blocks declare their output
// size up front; reserve() makes room for it (or fails) before a block writes anything. The
// room always extends kSlack bytes past the block, so copy loops may store whole 16-byte words
// and overshoot the end of a copy; those bytes are overwritten later or cut off by take().

namespace brimvale::lzfse {

class DecodeOutput {
public:
    static constexpr std::size_t kSlack = 32;

    // Sets aside memory for `expectedSize` bytes (or up to the limit, if less).
    DecodeOutput(std::size_t limit, std::uint64_t expectedSize);

    // Makes room for `count` more bytes, throwing if the output would pass the limit.
    void reserve(std::size_t count) {
        if (count > limit_ - size_) {
            throwOutputLimitExceeded(limit_);
        }
        if (bytes_.size() - size_ < count + kSlack) {
            bytes_.resize(size_ + count + kSlack);
        }
    }

    std::uint8_t* data() { return bytes_.data(); }
    std::size_t size() const { return size_; }
    // Marks `count` reserved bytes, written at data() + size(), as output.
    void commit(std::size_t count) { size_ += count; }

    std::vector<std::uint8_t> take() {
        bytes_.resize(size_);
        return std::move(bytes_);
    }

private:
    std::vector<std::uint8_t> bytes_; // output, then reserved room
    std::size_t size_ = 0;
    std::size_t limit_;
};

} // namespace brimvale::lzfse
