#include "core/model/SharedText.h"

#include "core/support/FatalError.h"

#include <cstddef>
#include <cstring>
#include <limits>
#include <new>

namespace brimvale {

SharedTextRef SharedText::make(std::string_view text) {
    if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
        fatalError("text too long for a shared text");
    }
    const std::size_t bytes =
        std::max(sizeof(SharedText), offsetof(SharedText, bytes_) + text.size());
    void* memory = ::operator new(bytes);
    auto* shared = new (memory) SharedText(static_cast<std::uint32_t>(text.size()));
    std::memcpy(reinterpret_cast<char*>(shared) + offsetof(SharedText, bytes_), text.data(),
                text.size());
    return SharedTextRef::adopt(shared);
}

void SharedText::release() const noexcept {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        this->~SharedText();
        ::operator delete(const_cast<SharedText*>(this));
    }
}

} // namespace brimvale
