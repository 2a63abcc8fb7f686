#pragma once

#include <cstdint>
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

} // namespace brimvale
