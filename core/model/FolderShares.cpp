#include "core/model/FolderShares.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace brimvale {
namespace {

// Levels are taken one by one from the top until this many items were seen: below it, threads
// cost more than they save (and a tree that ends before it never starts one).
constexpr std::size_t kParallelMinimumItems = 4096;
// Subtrees per thread to share out, so that one deep subtree does not leave the others idle.
constexpr std::size_t kSubtreesPerThread = 16;

void rebalanceAndSort(FileNode& folder) {
    folder.rebalanceChildren();
    folder.sortImmediateChildren();
}

void rebalanceAndSortSubtree(FileNode& top) {
    std::vector<FileNode*> folders{&top};
    while (!folders.empty()) {
        FileNode* folder = folders.back();
        folders.pop_back();
        rebalanceAndSort(*folder);
        for (const auto& child : folder->children()) {
            if (!child->children().empty()) {
                folders.push_back(child.get());
            }
        }
    }
}

} // namespace

void rebalanceAndSortEveryFolder(FileNode& root) {
    const unsigned threads = std::clamp(std::thread::hardware_concurrency(), 1u, 8u);
    if (threads == 1) {
        rebalanceAndSortSubtree(root);
        return;
    }
    // Level by level from the top until there are enough subtrees to share out.
    std::vector<FileNode*> level{&root};
    std::size_t itemsSeen = 0;
    while (!level.empty() &&
           (level.size() < threads * kSubtreesPerThread || itemsSeen < kParallelMinimumItems)) {
        std::vector<FileNode*> next;
        for (FileNode* folder : level) {
            rebalanceAndSort(*folder);
            itemsSeen += folder->children().size();
            for (const auto& child : folder->children()) {
                if (!child->children().empty()) {
                    next.push_back(child.get());
                }
            }
        }
        level = std::move(next);
    }
    if (itemsSeen < kParallelMinimumItems) {
        for (FileNode* folder : level) {
            rebalanceAndSortSubtree(*folder);
        }
        return;
    }
    std::atomic<std::size_t> nextSubtree{0};
    const auto work = [&] {
        for (std::size_t i = nextSubtree++; i < level.size(); i = nextSubtree++) {
            rebalanceAndSortSubtree(*level[i]);
        }
    };
    std::vector<std::jthread> helpers;
    for (unsigned t = 1; t < threads; ++t) {
        helpers.emplace_back(work);
    }
    work();
}

} // namespace brimvale
