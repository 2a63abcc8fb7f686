#include "core/persistence/cache/CacheSnapshot.h"

#include "core/support/FatalError.h"

#include <algorithm>
#include <limits>

namespace brimvale {
namespace {

std::int64_t checkedMultiply(std::int64_t a, std::int64_t b) {
    std::int64_t product = 0;
    if (__builtin_mul_overflow(a, b, &product)) {
        fatalError("overflow while estimating a tree's size");
    }
    return product;
}

std::int64_t add(std::int64_t a, std::int64_t b) {
    return checkedAdd(a, b, "overflow while estimating a tree's size");
}

} // namespace

std::int64_t estimatedTreeSize(const FileNode& root) {
    const auto childCount = static_cast<std::int64_t>(root.children().size());
    std::int64_t grandchildCount = 0;
    for (const auto& child : root.children()) {
        grandchildCount = add(grandchildCount, static_cast<std::int64_t>(child->children().size()));
    }
    if (childCount < 1) {
        return add(add(1, childCount), checkedMultiply(3, grandchildCount));
    }
    const std::int64_t fanOut = std::max<std::int64_t>(grandchildCount / childCount, 1);
    return add(add(add(1, childCount), grandchildCount),
               checkedMultiply(checkedMultiply(2, grandchildCount), fanOut));
}

CacheSnapshot snapshotForCache(const FileNode& root) {
    CacheSnapshot snapshot;
    snapshot.rootPath = root.path();
    snapshot.rootName = std::string(root.name());
    // The hint can overshoot a wide tree many times over (19.7 million for a tree of 1.09
    // million nodes in the benchmark); a count of the tree bounds it.
    const auto capacity = static_cast<std::size_t>(
        std::clamp<std::int64_t>(estimatedTreeSize(root), 0, root.subtreeNodeCount()));
    // Most names are short; the text grows past the guess when needed.
    snapshot.names.reserve(capacity, capacity * 16);
    snapshot.parents.reserve(capacity);
    snapshot.isDirs.reserve(capacity);
    snapshot.sizes.reserve(capacity);
    snapshot.modTimes.reserve(capacity);

    struct Frame {
        const FileNode* node;
        std::int32_t parentIndex;
    };
    std::vector<Frame> stack{{&root, -1}};
    while (!stack.empty()) {
        const Frame frame = stack.back();
        stack.pop_back();
        const std::size_t index = snapshot.names.size();
        if (index > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
            fatalError("a tree of 2^31 nodes or more cannot be saved in the cache");
        }
        const FileNode& node = *frame.node;
        snapshot.names.emplace_back(node.name());
        snapshot.parents.push_back(frame.parentIndex);
        snapshot.isDirs.push_back(node.isDirectory() ? 1 : 0);
        snapshot.sizes.push_back(node.size());
        const auto modified = node.modifiedDate();
        snapshot.modTimes.push_back(modified ? modified->secondsSinceReferenceDate : 0.0);
        snapshot.pids.emplace_back(node.providerID().value_or(std::string_view()));
        snapshot.mimes.emplace_back(node.mimeType().value_or(std::string_view()));
        const auto& children = node.children();
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            stack.push_back({child->get(), static_cast<std::int32_t>(index)});
        }
    }
    return snapshot;
}

void rollUpFolderSizes(CacheSnapshot& snapshot) {
    const std::size_t count = snapshot.nodeCount();
    std::vector<std::int64_t> contents(count, 0);
    // Pre-order: every parent comes before its children, so a walk backwards meets each node
    // after everything below it.
    for (std::size_t index = count; index-- > 0;) {
        if (snapshot.isDirs[index] != 0) {
            snapshot.sizes[index] = std::max(snapshot.sizes[index], contents[index]);
        }
        const std::int32_t parent = snapshot.parents[index];
        if (parent >= 0 && static_cast<std::size_t>(parent) < index) {
            std::int64_t& sum = contents[static_cast<std::size_t>(parent)];
            const std::int64_t size = std::max<std::int64_t>(snapshot.sizes[index], 0);
            sum = size > std::numeric_limits<std::int64_t>::max() - sum
                      ? std::numeric_limits<std::int64_t>::max()
                      : sum + size;
        }
    }
}

} // namespace brimvale
