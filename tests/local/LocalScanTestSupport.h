#pragma once

#include "core/local/LocalDiskAdapter.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace brimvale::testing {

// The node at `relative` below `root` ("a/b" → child a, then its child b); null when missing.
inline const FileNode* findNode(const FileNode& root, std::string_view relative) {
    const FileNode* node = &root;
    while (!relative.empty() && node != nullptr) {
        const auto slash = relative.find('/');
        const std::string_view name = relative.substr(0, slash);
        const FileNode* next = nullptr;
        for (const auto& child : node->children()) {
            if (child->name() == name) {
                next = child.get();
                break;
            }
        }
        node = next;
        relative =
            slash == std::string_view::npos ? std::string_view() : relative.substr(slash + 1);
    }
    return node;
}

// Every folder's size is the sum of its children's, children are largest first, and every
// child's parent link and path follow from its folder. Iterative, so deep trees are fine.
inline void expectConsistentTree(const FileNode& root) {
    std::vector<const FileNode*> stack{&root};
    std::int64_t checked = 0;
    while (!stack.empty()) {
        const FileNode* node = stack.back();
        stack.pop_back();
        ++checked;
        if (!node->isDirectory()) {
            ASSERT_TRUE(node->children().empty()) << node->path();
            continue;
        }
        std::int64_t total = 0;
        const std::string folderPath = node->path();
        for (std::size_t i = 0; i < node->children().size(); ++i) {
            const FileNode& child = *node->children()[i];
            total += child.size();
            ASSERT_EQ(child.parent(), node) << child.path();
            ASSERT_EQ(child.path(), folderPath.empty()
                                        ? std::string(child.name())
                                        : folderPath + "/" + std::string(child.name()));
            ASSERT_EQ(child.scanGeneration(), 0) << child.path();
            if (i > 0) {
                ASSERT_GE(node->children()[i - 1]->size(), child.size()) << child.path();
            }
            stack.push_back(&child);
        }
        ASSERT_EQ(node->size(), total) << folderPath;
    }
    EXPECT_GT(checked, 0);
}

} // namespace brimvale::testing
