#include "core/insights/SpaceByType.h"

#include "core/support/SaturatingAdd.h"

#include <algorithm>
#include <functional>
#include <unordered_map>

namespace brimvale {
namespace {

struct ExtensionHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
        return std::hash<std::string_view>{}(text);
    }
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
    struct Entry {
        FileCategory category;
        TypeTotal total;
    };
    std::unordered_map<std::string, Entry, ExtensionHash, std::equal_to<>> extensions;
    std::vector<const FileNode*> stack{&folder};
    std::array<char, 16> buffer;
    while (!stack.empty()) {
        const FileNode* node = stack.back();
        stack.pop_back();
        if (node->isDirectory()) {
            for (const FileNodeRef& child : node->children()) {
                stack.push_back(child.get());
            }
            continue;
        }
        const std::int64_t bytes = std::max<std::int64_t>(node->size(), 0);
        add(result.all, bytes);
        const auto extension = fileExtension(node->name(), buffer);
        FileCategory category = FileCategory::other;
        if (extension) {
            auto found = extensions.find(*extension);
            if (found == extensions.end()) {
                found = extensions
                            .emplace(std::string(*extension),
                                     Entry{fileCategoryForExtension(*extension), {}})
                            .first;
            }
            add(found->second.total, bytes);
            category = found->second.category;
        } else {
            add(result.noExtension, bytes);
        }
        if (const auto mimeType = node->mimeType()) {
            category = fileCategoryOf(node->name(), mimeType);
        }
        add(result.byCategory[static_cast<std::size_t>(category)], bytes);
    }
    std::vector<ExtensionTotal> all;
    all.reserve(extensions.size());
    for (auto& [extension, entry] : extensions) {
        all.push_back({extension, entry.category, entry.total});
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
