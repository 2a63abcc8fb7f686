#include "core/persistence/lzfse/DecodeOutput.h"

#include <algorithm>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace brimvale::lzfse {

namespace {

// A large output is written once, front to back, into fresh memory. With 4 KiB pages the page
// faults then cost more than the decoding itself; transparent huge pages, where the system
// grants them on request, cut their number 512-fold. Only a hint: failure changes nothing.
void adviseHugePages(std::uint8_t* data, std::size_t size) {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr std::uintptr_t kHugePage = std::uintptr_t{1} << 21;
    if (size < 2 * kHugePage) {
        return;
    }
    const auto address = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t begin = (address + kHugePage - 1) & ~(kHugePage - 1);
    const std::uintptr_t end = (address + size) & ~(kHugePage - 1);
    if (end > begin) {
        madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
    }
#else
    (void)data;
    (void)size;
#endif
}

} // namespace

DecodeOutput::DecodeOutput(std::size_t limit, std::uint64_t expectedSize)
    : limit_(limit) {
    bytes_.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(expectedSize, limit)) + kSlack);
    adviseHugePages(bytes_.data(), bytes_.capacity());
}

} // namespace brimvale::lzfse
