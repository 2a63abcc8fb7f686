#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace brimvale {

// The capacity of the file system that holds a path, from statvfs. Stateless; any thread.
struct VolumeSpace {
    std::int64_t totalBytes = 0;
    std::int64_t availableBytes = 0; // free for an ordinary user (reserved blocks excluded)
    std::int64_t usedBytes = 0;      // total minus every free block, as df counts "Used"

    // Empty when statvfs fails for `path`.
    static std::optional<VolumeSpace> of(const std::string& path);
};

// What asking a file system for its capacity gave, within a time limit.
struct VolumeSpaceAnswer {
    std::optional<VolumeSpace> space; // empty when statvfs failed or did not answer
    bool notResponding = false;       // statvfs did not return within the limit
};

// Asks on a thread of its own: statvfs of a hung network or FUSE mount does not return (and
// cannot be interrupted), so the caller waits at most until the deadline and the thread is left
// to end whenever the kernel lets it. Start all questions first, then wait for each.
class PendingVolumeSpace {
public:
    explicit PendingVolumeSpace(const std::string& path);
    VolumeSpaceAnswer wait(std::chrono::steady_clock::time_point deadline);

private:
    struct Shared;
    std::shared_ptr<Shared> shared_;
};

// One question, waited for at most `limit`.
VolumeSpaceAnswer volumeSpaceWithin(const std::string& path, std::chrono::milliseconds limit);

} // namespace brimvale
