#pragma once

#include "core/support/RefPtr.h"

#include <atomic>
#include <cstdint>
#include <string_view>

namespace brimvale {

// An immutable, reference-counted text in one heap block. Siblings in a tree share one copy of
// their folder's path through it. Thread safety: counting is atomic; the text never changes.
class SharedText {
public:
    static RefPtr<SharedText> make(std::string_view text);

    std::string_view view() const noexcept { return {bytes_, size_}; }

    void retain() const noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() const noexcept;

    SharedText(const SharedText&) = delete;
    SharedText& operator=(const SharedText&) = delete;

private:
    explicit SharedText(std::uint32_t size)
        : size_(size) {}
    ~SharedText() = default;

    mutable std::atomic<std::uint32_t> references_{1};
    std::uint32_t size_;
    char bytes_[8]; // really size_ bytes
};

using SharedTextRef = RefPtr<SharedText>;

} // namespace brimvale
