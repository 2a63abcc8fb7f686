#include "core/insights/LargestFiles.h"

#include <algorithm>
#include <cstdint>

namespace brimvale {
namespace {

struct Candidate {
    std::int64_t size;
    std::size_t order; // position in the walk: earlier wins a tie
    const FileNode* node;
};

// "a ranks before b": larger, or as large and met earlier. The heap keeps the worst on top.
bool ranksBefore(const Candidate& a, const Candidate& b) {
    return a.size != b.size ? a.size > b.size : a.order < b.order;
}

} // namespace

std::vector<FileNodeRef> largestFiles(const FileNode& folder, std::size_t count) {
    std::vector<Candidate> heap;
    if (count == 0) {
        return {};
    }
    heap.reserve(std::min<std::size_t>(count, 1 << 16));
    std::vector<const FileNode*> stack{&folder};
    std::size_t order = 0;
    while (!stack.empty()) {
        const FileNode* node = stack.back();
        stack.pop_back();
        if (node->isDirectory()) {
            const auto& children = node->children();
            for (auto child = children.rbegin(); child != children.rend(); ++child) {
                __builtin_prefetch(child->get()); // a miss of its own: asked for early
                stack.push_back(child->get());
            }
            continue;
        }
        const std::int64_t size = node->size();
        ++order;
        if (size <= 0) {
            continue;
        }
        if (heap.size() < count) {
            heap.push_back({size, order, node});
            std::push_heap(heap.begin(), heap.end(), ranksBefore);
        } else if (size > heap.front().size) {
            // A later file of the same size as the worst kept one ranks after it: not taken.
            std::pop_heap(heap.begin(), heap.end(), ranksBefore);
            heap.back() = {size, order, node};
            std::push_heap(heap.begin(), heap.end(), ranksBefore);
        }
    }
    std::sort_heap(heap.begin(), heap.end(), ranksBefore);
    std::vector<FileNodeRef> largest;
    largest.reserve(heap.size());
    for (const Candidate& candidate : heap) {
        largest.push_back(FileNodeRef(const_cast<FileNode*>(candidate.node)));
    }
    return largest;
}

} // namespace brimvale
