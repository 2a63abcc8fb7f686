#include "core/local/VolumeSpace.h"

#include <condition_variable>
#include <limits>
#include <mutex>
#include <sys/statvfs.h>
#include <system_error>
#include <thread>

namespace brimvale {
namespace {

std::int64_t blocksToBytes(unsigned long long blocks, unsigned long long blockSize) {
    unsigned long long bytes = 0;
    if (__builtin_mul_overflow(blocks, blockSize, &bytes) ||
        bytes > static_cast<unsigned long long>(std::numeric_limits<std::int64_t>::max())) {
        return std::numeric_limits<std::int64_t>::max();
    }
    return static_cast<std::int64_t>(bytes);
}

} // namespace

std::optional<VolumeSpace> VolumeSpace::of(const std::string& path) {
    struct statvfs status {};
    if (::statvfs(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    const unsigned long long blockSize = status.f_frsize != 0 ? status.f_frsize : status.f_bsize;
    VolumeSpace space;
    space.totalBytes = blocksToBytes(status.f_blocks, blockSize);
    space.availableBytes = blocksToBytes(status.f_bavail, blockSize);
    const unsigned long long usedBlocks =
        status.f_blocks > status.f_bfree ? status.f_blocks - status.f_bfree : 0;
    space.usedBytes = blocksToBytes(usedBlocks, blockSize);
    return space;
}

struct PendingVolumeSpace::Shared {
    std::mutex lock;
    std::condition_variable answered;
    bool done = false;
    std::optional<VolumeSpace> space;
};

PendingVolumeSpace::PendingVolumeSpace(const std::string& path)
    : shared_(std::make_shared<Shared>()) {
    try {
        std::thread([shared = shared_, path] {
            auto space = VolumeSpace::of(path);
            {
                std::lock_guard guard(shared->lock);
                shared->space = std::move(space);
                shared->done = true;
            }
            shared->answered.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        // No thread to spare: ask here, at the risk of waiting.
        shared_->space = VolumeSpace::of(path);
        shared_->done = true;
    }
}

VolumeSpaceAnswer PendingVolumeSpace::wait(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock guard(shared_->lock);
    if (!shared_->answered.wait_until(guard, deadline, [this] { return shared_->done; })) {
        return VolumeSpaceAnswer{.notResponding = true};
    }
    return VolumeSpaceAnswer{.space = shared_->space};
}

VolumeSpaceAnswer volumeSpaceWithin(const std::string& path, std::chrono::milliseconds limit) {
    return PendingVolumeSpace(path).wait(std::chrono::steady_clock::now() + limit);
}

} // namespace brimvale
