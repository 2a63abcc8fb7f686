#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

namespace brimvale {

// Compresses a stream that arrives in pieces into one LZFSE stream, on several threads, with
// memory bounded by a few pieces rather than by the stream: each piece is compressed on its own
// (its blocks refer to nothing before it) while the caller fills the next, and the compressed
// pieces reach `sink` in their order. Pieces of a megabyte or more lose a fraction of a percent
// of ratio against one stream.
//
// One producer thread calls emptyPiece/compress/finish; the sink is called on the compressing
// threads, one call at a time. An exception from the sink or from compression ends the stream:
// the next compress or finish rethrows it, and nothing more reaches the sink.
class LzfseStreamCompressor {
public:
    using Sink = std::function<void(std::span<const std::uint8_t>)>;

    explicit LzfseStreamCompressor(Sink sink, unsigned threads = defaultThreadCount());
    // Without finish(), work still queued is dropped and the end-of-stream marker never written.
    ~LzfseStreamCompressor();

    LzfseStreamCompressor(const LzfseStreamCompressor&) = delete;
    LzfseStreamCompressor& operator=(const LzfseStreamCompressor&) = delete;

    // An empty buffer to fill with the next piece, with the capacity of one handed back earlier
    // when there is one. Waits while as many pieces as allowed are still being compressed.
    std::vector<std::uint8_t> emptyPiece();
    // Queues the next piece of the stream (an empty piece is ignored).
    void compress(std::vector<std::uint8_t> piece);
    // Waits for every piece, then writes the end-of-stream marker (after one empty raw block when
    // no byte was given, as for an empty input).
    void finish();

    static unsigned defaultThreadCount();

private:
    struct Job {
        std::vector<std::uint8_t> input;
        std::vector<std::uint8_t> output;
        bool done = false;
    };

    void work();
    void throwIfFailed();
    // Hands the finished jobs at the front to the sink, in order; called under lock_, which it
    // drops around the sink call (only one thread delivers at a time).
    void deliverReady(std::unique_lock<std::mutex>& lock);

    Sink sink_;
    std::size_t maxInFlight_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<Job*> order_;   // every job not yet delivered, in stream order
    std::deque<Job*> waiting_; // jobs no worker took yet
    std::vector<std::vector<std::uint8_t>> spareInputs_;
    std::vector<std::vector<std::uint8_t>> spareOutputs_;
    std::uint64_t bytesIn_ = 0;
    bool delivering_ = false;
    bool stopping_ = false;
    std::exception_ptr failure_;
    std::vector<std::thread> threads_;
};

} // namespace brimvale
