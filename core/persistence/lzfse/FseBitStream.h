#pragma once

#include "core/persistence/lzfse/LittleEndian.h"

#include <cstddef>
#include <cstdint>

// The bit streams of LZFSE blocks. A stream is written forward as an LSB-first bit string whose
// last byte is padded with zero bits, and read backward, so each read returns the most recently
// written bits that are still unread. The header of the block stores the padding as a "bits"
// value: the number of bits written minus 8 times the number of bytes (-7 ... 0).

namespace brimvale::lzfse {

// Appends bit groups at `out`. Each flush() stores 8 bytes, so the destination needs 8 bytes of
// room beyond the final stream end.
class FseBitWriter {
public:
    explicit FseBitWriter(std::uint8_t* out)
        : out_(out) {}

    // `value` < 2^bitCount; at most 56 bits may be written between two flushes.
    void write(std::uint64_t value, unsigned bitCount) {
        accumulator_ |= value << pending_;
        pending_ += bitCount;
    }

    // Moves the complete bytes written so far to the destination.
    void flush() {
        storeLe64(out_, accumulator_);
        const unsigned bytes = pending_ >> 3;
        out_ += bytes;
        accumulator_ = bytes == 8 ? 0 : accumulator_ >> (8 * bytes);
        pending_ &= 7;
    }

    // Flushes, pads the last byte with zeros and returns the end of the stream. `bitsValue`
    // receives the header's padding value (-7 ... 0).
    std::uint8_t* finish(int& bitsValue) {
        flush();
        if (pending_ == 0) {
            bitsValue = 0;
            return out_;
        }
        bitsValue = static_cast<int>(pending_) - 8;
        return out_ + 1;
    }

private:
    std::uint8_t* out_;
    std::uint64_t accumulator_ = 0;
    unsigned pending_ = 0; // bits in accumulator_ not yet stored as whole bytes
};

// Reads a stream backward, strictly within its payload: a read of more bits than remain is
// reported by the caller comparing with available() first, never by touching outside bytes.
class FseBitReader {
public:
    // Starts at the end of `payload`. Returns false if `bitsValue` does not fit the payload or
    // if the padding bits of the last byte are not zero.
    bool start(const std::uint8_t* payload, std::size_t size, int bitsValue) {
        begin_ = payload;
        next_ = payload + size;
        accumulator_ = 0;
        count_ = 0;
        if (bitsValue > 0 || bitsValue < -8 || (bitsValue < 0 && size == 0)) {
            return false;
        }
        refill();
        if (bitsValue < 0) {
            const unsigned padding = static_cast<unsigned>(-bitsValue);
            if (peekTop(padding) != 0) {
                return false;
            }
            count_ -= padding;
        }
        return true;
    }

    // Loads whole bytes until at least 56 bits are held or the payload is used up.
    void refill() {
        const unsigned bytes = (63 - count_) >> 3;
        if (bytes == 0) {
            return;
        }
        if (static_cast<std::size_t>(next_ - begin_) >= 8) {
            const std::uint64_t word = loadLe64(next_ - 8);
            accumulator_ = (accumulator_ << (8 * bytes)) | (word >> (64 - 8 * bytes));
            next_ -= bytes;
            count_ += 8 * bytes;
            return;
        }
        for (unsigned i = 0; i < bytes && next_ > begin_; ++i) {
            --next_;
            accumulator_ = (accumulator_ << 8) | *next_;
            count_ += 8;
        }
    }

    // Bits that can be read before the next refill().
    unsigned available() const { return count_; }

    // Bits of the stream not yet read, loaded or not.
    std::size_t remaining() const { return count_ + 8 * static_cast<std::size_t>(next_ - begin_); }

    // Reads `bitCount` <= available() bits.
    std::uint64_t read(unsigned bitCount) {
        const std::uint64_t value = peekTop(bitCount);
        count_ -= bitCount;
        return value;
    }

private:
    std::uint64_t peekTop(unsigned bitCount) const {
        return (accumulator_ >> (count_ - bitCount)) & ((std::uint64_t{1} << bitCount) - 1);
    }

    const std::uint8_t* begin_ = nullptr;
    const std::uint8_t* next_ = nullptr; // bytes [begin_, next_) are not loaded yet
    std::uint64_t accumulator_ = 0;      // the low count_ bits are the next bits to read
    unsigned count_ = 0;
};

} // namespace brimvale::lzfse
