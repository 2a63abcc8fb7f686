#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

namespace brimvale {

// An immutable text in one machine word: up to 7 bytes are kept inside the object, longer texts
// in one heap block that starts with their length. Trees hold one per node (the name), so this
// saves a quarter of a node's size over std::string. Bytes are kept as given (not necessarily
// UTF-8).
class CompactString {
public:
    CompactString() noexcept { clearToEmpty(); }
    explicit CompactString(std::string_view text);
    CompactString(const CompactString& other)
        : CompactString(other.view()) {}
    CompactString(CompactString&& other) noexcept
        : word_(other.word_) {
        other.clearToEmpty();
    }
    CompactString& operator=(const CompactString& other) {
        CompactString(other).swap(*this);
        return *this;
    }
    CompactString& operator=(CompactString&& other) noexcept {
        CompactString(std::move(other)).swap(*this);
        return *this;
    }
    ~CompactString() { freeHeapBlock(); }

    std::string_view view() const noexcept {
        if (isInline()) {
            return {reinterpret_cast<const char*>(&word_),
                    static_cast<std::size_t>(word_ >> 56 & 0x7F)};
        }
        const auto* block = reinterpret_cast<const HeapBlock*>(word_);
        return {block->bytes, block->size};
    }
    operator std::string_view() const noexcept { return view(); } // NOLINT: a text is a text
    std::size_t size() const noexcept { return view().size(); }
    bool empty() const noexcept { return size() == 0; }

    void swap(CompactString& other) noexcept { std::swap(word_, other.word_); }

private:
    static_assert(std::endian::native == std::endian::little,
                  "inline layout assumes little endian");
    static constexpr std::uint64_t kInlineTag = std::uint64_t{1} << 63;
    static constexpr std::size_t kInlineCapacity = 7;

    struct HeapBlock {
        std::uint32_t size;
        char bytes[4]; // really `size` bytes
    };

    bool isInline() const noexcept { return (word_ & kInlineTag) != 0; }
    void clearToEmpty() noexcept { word_ = kInlineTag; }
    void freeHeapBlock() noexcept;

    // Inline: bytes 0..6 hold the text and the top byte is 0x80 | length. Heap: a HeapBlock
    // pointer, whose top bit is always clear for user-space addresses.
    std::uint64_t word_;
};

} // namespace brimvale
