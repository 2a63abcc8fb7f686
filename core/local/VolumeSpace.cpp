#include "core/local/VolumeSpace.h"

#include <limits>
#include <sys/statvfs.h>

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

} // namespace brimvale
