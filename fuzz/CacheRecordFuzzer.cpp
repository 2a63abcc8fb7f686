// Feeds arbitrary bytes to the cache decoder: compressed or plain property-list records and the
// older nested JSON. A corrupt file must give no tree, never a crash, leak or unbounded memory.
#include <cstddef>
#include <cstdint>
#include <span>

#include "core/persistence/cache/CacheRecord.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto root = brimvale::decodeCacheNode(std::span(data, size));
    if (root) {
        (void)(*root)->subtreeNodeCount();
    }
    return 0;
}
