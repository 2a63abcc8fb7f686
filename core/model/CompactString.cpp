#include "core/model/CompactString.h"

#include "core/support/FatalError.h"

#include <cstddef>
#include <limits>
#include <new>

namespace brimvale {

CompactString::CompactString(std::string_view text) {
    if (text.size() <= kInlineCapacity) {
        word_ = kInlineTag | (std::uint64_t{text.size()} << 56);
        std::memcpy(reinterpret_cast<char*>(&word_), text.data(), text.size());
        return;
    }
    if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
        fatalError("text too long for a compact string");
    }
    void* memory = ::operator new(offsetof(HeapBlock, bytes) + text.size());
    auto* block = static_cast<HeapBlock*>(memory);
    block->size = static_cast<std::uint32_t>(text.size());
    std::memcpy(reinterpret_cast<char*>(block) + offsetof(HeapBlock, bytes), text.data(),
                text.size());
    word_ = reinterpret_cast<std::uintptr_t>(block);
    if (isInline()) {
        fatalError("heap address with the top bit set; compact strings need user-space addresses");
    }
}

void CompactString::freeHeapBlock() noexcept {
    if (!isInline()) {
        ::operator delete(reinterpret_cast<void*>(word_));
    }
}

} // namespace brimvale
