#pragma once

#include "core/model/FileNode.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace brimvale::testing {

// A random tree for checking the overview passes against brute force: folders up to `depth`
// deep, names drawn from a small set (so they repeat, in both cases, with and without
// extensions), sizes with many ties and zeros. Sizes are rolled up and parent links set.
inline FileNodeRef randomTree(std::mt19937_64& random, int depth = 4) {
    static const std::vector<std::string> stems = {"Report", "report", "IMG_01",  "a",      "notes",
                                                   "x.y",    "data",   ".hidden", "Ünïcode"};
    static const std::vector<std::string> extensions = {"",
                                                        ".mp4",
                                                        ".JPG",
                                                        ".png",
                                                        ".mp3",
                                                        ".zip",
                                                        ".tar.gz",
                                                        ".cpp",
                                                        ".pdf",
                                                        ".txt",
                                                        ".bin",
                                                        ".",
                                                        ".toolongextension123"};
    std::uniform_int_distribution<int> pick(0, 1 << 30);
    const auto makeFolder = [](const std::string& name, const std::string& path) {
        return FileNode::make({.name = name, .path = path, .isDirectory = true});
    };
    FileNodeRef root = makeFolder("root", "/root");
    std::vector<std::pair<FileNode*, int>> stack{{root.get(), 0}};
    int serial = 0;
    while (!stack.empty()) {
        const auto [parent, level] = stack.back();
        stack.pop_back();
        const int count = pick(random) % 12;
        for (int i = 0; i < count; ++i) {
            const std::string name =
                stems[static_cast<std::size_t>(pick(random)) % stems.size()] +
                std::to_string(serial++ % 7) +
                extensions[static_cast<std::size_t>(pick(random)) % extensions.size()];
            const std::string path = parent->path() + "/" + name;
            if (level < depth && pick(random) % 4 == 0) {
                FileNodeRef child = makeFolder(name, path);
                stack.emplace_back(child.get(), level + 1);
                parent->mutableChildren().push_back(std::move(child));
            } else {
                const int roll = pick(random) % 10;
                const std::int64_t size = roll < 2 ? 0 : roll < 4 ? 4096 : pick(random) % 100'000;
                parent->mutableChildren().push_back(
                    FileNode::make({.name = name, .path = path, .size = size}));
            }
        }
    }
    root->propagateSizes();
    root->relinkDescendantParentPointers();
    return root;
}

// Every node of a subtree in pre-order, the root first.
inline std::vector<const FileNode*> preorder(const FileNode& root) {
    std::vector<const FileNode*> nodes;
    std::vector<const FileNode*> stack{&root};
    while (!stack.empty()) {
        const FileNode* node = stack.back();
        stack.pop_back();
        nodes.push_back(node);
        for (auto child = node->children().rbegin(); child != node->children().rend(); ++child) {
            stack.push_back(child->get());
        }
    }
    return nodes;
}

} // namespace brimvale::testing
