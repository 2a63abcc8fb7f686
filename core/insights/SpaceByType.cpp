#include "core/insights/SpaceByType.h"

#include "core/support/SaturatingAdd.h"

#include <algorithm>
#include <cstring>

namespace brimvale {
namespace {

// Extensions are at most 16 bytes: two words, zero-padded, are the key of an open-addressing
// table (a string map's hashing and comparing took most of the pass).
struct ExtensionKey {
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    bool operator==(const ExtensionKey&) const = default;
};

ExtensionKey keyOf(std::string_view extension) {
    std::array<char, 16> bytes{};
    std::memcpy(bytes.data(), extension.data(), extension.size());
    ExtensionKey key;
    std::memcpy(&key.low, bytes.data(), 8);
    std::memcpy(&key.high, bytes.data() + 8, 8);
    return key;
}

class ExtensionTable {
public:
    struct Slot {
        ExtensionKey key; // all zero: empty (an extension is never empty)
        std::uint8_t length = 0;
        FileCategory category = FileCategory::other;
        TypeTotal total;
    };

    Slot& find(std::string_view extension) {
        if ((count_ + 1) * 2 > slots_.size()) {
            grow();
        }
        const ExtensionKey key = keyOf(extension);
        Slot& slot = slots_[probe(key)];
        if (slot.length == 0) {
            slot.key = key;
            slot.length = static_cast<std::uint8_t>(extension.size());
            slot.category = fileCategoryForExtension(extension);
            ++count_;
        }
        return slot;
    }
    const std::vector<Slot>& slots() const { return slots_; }

private:
    std::size_t probe(const ExtensionKey& key) const {
        const std::size_t mask = slots_.size() - 1;
        std::size_t index =
            static_cast<std::size_t>(
                (key.low ^ (key.high * 0x9E3779B97F4A7C15ULL)) * 0xBF58476D1CE4E5B9ULL >> 20) &
            mask;
        while (slots_[index].length != 0 && !(slots_[index].key == key)) {
            index = (index + 1) & mask;
        }
        return index;
    }
    void grow() {
        std::vector<Slot> old = std::move(slots_);
        slots_.assign(std::max<std::size_t>(64, old.size() * 2), Slot{});
        for (const Slot& slot : old) {
            if (slot.length != 0) {
                slots_[probe(slot.key)] = slot;
            }
        }
    }

    std::vector<Slot> slots_;
    std::size_t count_ = 0;
};

void add(TypeTotal& total, std::int64_t bytes) {
    total.bytes = saturatingAdd(total.bytes, bytes);
    ++total.files;
}

bool takesMore(const ExtensionTotal& a, const ExtensionTotal& b) {
    if (a.total.bytes != b.total.bytes) {
        return a.total.bytes > b.total.bytes;
    }
    if (a.total.files != b.total.files) {
        return a.total.files > b.total.files;
    }
    return a.extension < b.extension;
}

} // namespace

SpaceByType spaceByType(const FileNode& folder, std::size_t extensionCount) {
    SpaceByType result;
    ExtensionTable extensions;
    std::vector<const FileNode*> stack{&folder};
    std::array<char, 16> buffer;
    while (!stack.empty()) {
        const FileNode* node = stack.back();
        stack.pop_back();
        if (node->isDirectory()) {
            for (const FileNodeRef& child : node->children()) {
                // Each node is an allocation of its own: ask for it before it is popped.
                __builtin_prefetch(child.get());
                stack.push_back(child.get());
            }
            continue;
        }
        const std::int64_t bytes = std::max<std::int64_t>(node->size(), 0);
        add(result.all, bytes);
        const auto extension = fileExtension(node->name(), buffer);
        FileCategory category = FileCategory::other;
        if (extension) {
            ExtensionTable::Slot& slot = extensions.find(*extension);
            add(slot.total, bytes);
            category = slot.category;
        } else {
            add(result.noExtension, bytes);
        }
        if (const auto mimeType = node->mimeType()) {
            category = fileCategoryOf(node->name(), mimeType);
        }
        add(result.byCategory[static_cast<std::size_t>(category)], bytes);
    }
    std::vector<ExtensionTotal> all;
    for (const ExtensionTable::Slot& slot : extensions.slots()) {
        if (slot.length != 0) {
            std::array<char, 16> bytes;
            std::memcpy(bytes.data(), &slot.key.low, 8);
            std::memcpy(bytes.data() + 8, &slot.key.high, 8);
            all.push_back({std::string(bytes.data(), slot.length), slot.category, slot.total});
        }
    }
    const std::size_t kept = std::min(extensionCount, all.size());
    std::partial_sort(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(kept), all.end(),
                      takesMore);
    for (std::size_t i = kept; i < all.size(); ++i) {
        result.otherExtensions.bytes =
            saturatingAdd(result.otherExtensions.bytes, all[i].total.bytes);
        result.otherExtensions.files += all[i].total.files;
    }
    all.resize(kept);
    result.topExtensions = std::move(all);
    return result;
}

} // namespace brimvale
