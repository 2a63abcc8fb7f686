#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/CacheSnapshot.h"

#include <gtest/gtest.h>

#include <vector>

namespace brimvale {
namespace {

FileNodeRef folder(std::string name, std::vector<FileNodeRef> children) {
    std::int64_t total = 0;
    for (const auto& child : children) {
        total += child->size();
    }
    return FileNode::make({.name = std::move(name),
                           .path = "",
                           .isDirectory = true,
                           .size = total,
                           .children = std::move(children)});
}

FileNodeRef file(std::string name, std::int64_t size) {
    return FileNode::make({.name = std::move(name), .path = "", .size = size});
}

// The share bars of the column browser come from each item's share of its folder; a saved scan
// does not store them, so a tree opened from one must have them worked out again, at every
// depth, with folders of nothing showing no share rather than a division by zero.
TEST(LoadedTreeShares, EveryItemOfAnOpenedScanHasItsShareOfItsFolder) {
    auto root = folder("root", {folder("media", {file("clip.mov", 600), file("song.mp3", 200)}),
                                folder("empty", {}), folder("zeros", {file("blank", 0)}),
                                file("notes.txt", 200)});
    root->relinkDescendantParentPointers();
    const auto bytes = encodeCacheSnapshot(snapshotForCache(*root));
    ASSERT_TRUE(bytes);
    const auto opened = decodeCacheNode(*bytes);
    ASSERT_TRUE(opened);

    std::vector<const FileNode*> stack{opened->get()};
    int checkedFolders = 0;
    while (!stack.empty()) {
        const FileNode* node = stack.back();
        stack.pop_back();
        if (!node->isDirectory()) {
            continue;
        }
        ++checkedFolders;
        double sum = 0;
        for (const auto& child : node->children()) {
            const double expected = node->size() > 0 ? static_cast<double>(child->size()) /
                                                           static_cast<double>(node->size())
                                                     : 0.0;
            EXPECT_DOUBLE_EQ(child->fractionOfParent(), expected) << child->path();
            sum += child->fractionOfParent();
            stack.push_back(child.get());
        }
        if (node->size() > 0) {
            EXPECT_NEAR(sum, 1.0, 1e-9) << node->path();
        }
    }
    EXPECT_EQ(checkedFolders, 4);
    EXPECT_DOUBLE_EQ(opened->get()->children().front()->fractionOfParent(), 0.8) << "media first";
}

} // namespace
} // namespace brimvale
