#include "core/persistence/bplist/LargeAllocation.h"

#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace brimvale::bplist {

void adviseWholeUse(const void* data, std::size_t bytes) {
#if defined(MADV_HUGEPAGE)
    constexpr std::size_t kHugePage = std::size_t{2} << 20;
    if (bytes < 2 * kHugePage) {
        return;
    }
    // Only the huge pages wholly inside the range, so that neighbouring allocations are left
    // as they are.
    const auto begin = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t first = (begin + kHugePage - 1) & ~(kHugePage - 1);
    const std::uintptr_t last = (begin + bytes) & ~(kHugePage - 1);
    if (last > first) {
        ::madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
    }
#else
    (void)data;
    (void)bytes;
#endif
}

} // namespace brimvale::bplist
