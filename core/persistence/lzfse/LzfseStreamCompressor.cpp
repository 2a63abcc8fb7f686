#include "core/persistence/lzfse/LzfseStreamCompressor.h"

#include "core/persistence/lzfse/LittleEndian.h"
#include "core/persistence/lzfse/LzfseFormat.h"
#include "core/persistence/lzfse/LzfseSegment.h"
#include "core/persistence/lzfse/RawBlock.h"

#include <algorithm>
#include <memory>

namespace brimvale {

using namespace lzfse;

unsigned LzfseStreamCompressor::defaultThreadCount() {
    return std::clamp(std::thread::hardware_concurrency(), 1u, 4u);
}

LzfseStreamCompressor::LzfseStreamCompressor(Sink sink, unsigned threads)
    : sink_(std::move(sink))
    , maxInFlight_(std::max(1u, threads) + 2) {
    for (unsigned i = 0; i < std::max(1u, threads); ++i) {
        threads_.emplace_back([this] { work(); });
    }
}

LzfseStreamCompressor::~LzfseStreamCompressor() {
    {
        std::lock_guard guard(lock_);
        stopping_ = true;
        waiting_.clear();
    }
    changed_.notify_all();
    for (auto& thread : threads_) {
        thread.join();
    }
    for (Job* job : order_) {
        delete job;
    }
}

void LzfseStreamCompressor::throwIfFailed() {
    if (failure_) {
        std::rethrow_exception(failure_);
    }
}

std::vector<std::uint8_t> LzfseStreamCompressor::emptyPiece() {
    std::unique_lock lock(lock_);
    changed_.wait(lock, [&] { return order_.size() < maxInFlight_ || failure_; });
    throwIfFailed();
    if (spareInputs_.empty()) {
        return {};
    }
    std::vector<std::uint8_t> piece = std::move(spareInputs_.back());
    spareInputs_.pop_back();
    piece.clear();
    return piece;
}

void LzfseStreamCompressor::compress(std::vector<std::uint8_t> piece) {
    if (piece.empty()) {
        return;
    }
    {
        std::lock_guard guard(lock_);
        throwIfFailed();
        auto* job = new Job{.input = std::move(piece)};
        bytesIn_ += job->input.size();
        order_.push_back(job);
        waiting_.push_back(job);
    }
    changed_.notify_all();
}

void LzfseStreamCompressor::finish() {
    std::unique_lock lock(lock_);
    changed_.wait(lock, [&] { return (order_.empty() && !delivering_) || failure_; });
    throwIfFailed();
    std::vector<std::uint8_t> tail;
    if (bytesIn_ == 0) {
        appendRawBlock({}, tail);
    }
    tail.resize(tail.size() + 4);
    storeLe32(tail.data() + tail.size() - 4, kEndOfStreamMagic);
    lock.unlock();
    sink_(tail);
}

void LzfseStreamCompressor::work() {
    std::unique_lock lock(lock_);
    for (;;) {
        changed_.wait(lock, [&] { return stopping_ || !waiting_.empty(); });
        if (waiting_.empty()) {
            return;
        }
        Job* job = waiting_.front();
        waiting_.pop_front();
        std::vector<std::uint8_t> output;
        if (!spareOutputs_.empty()) {
            output = std::move(spareOutputs_.back());
            spareOutputs_.pop_back();
            output.clear();
        }
        lock.unlock();
        std::exception_ptr failed;
        try {
            appendCompressedSegment(job->input, output);
        } catch (...) {
            failed = std::current_exception();
        }
        lock.lock();
        if (failed) {
            if (!failure_) {
                failure_ = failed;
            }
            waiting_.clear();
            changed_.notify_all();
            continue;
        }
        job->output = std::move(output);
        job->done = true;
        deliverReady(lock);
    }
}

void LzfseStreamCompressor::deliverReady(std::unique_lock<std::mutex>& lock) {
    if (delivering_) {
        return;
    }
    delivering_ = true;
    while (!failure_ && !order_.empty() && order_.front()->done) {
        std::unique_ptr<Job> job(order_.front());
        order_.pop_front();
        lock.unlock();
        std::exception_ptr failed;
        try {
            sink_(job->output);
        } catch (...) {
            failed = std::current_exception();
        }
        lock.lock();
        if (failed) {
            failure_ = failed;
            waiting_.clear();
            break;
        }
        if (spareInputs_.size() < maxInFlight_) {
            spareInputs_.push_back(std::move(job->input));
        }
        if (spareOutputs_.size() < maxInFlight_) {
            spareOutputs_.push_back(std::move(job->output));
        }
        changed_.notify_all();
    }
    delivering_ = false;
    changed_.notify_all();
}

} // namespace brimvale
