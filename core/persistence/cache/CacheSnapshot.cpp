#include "core/persistence/cache/CacheSnapshot.h"

#include "core/support/FatalError.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <optional>
#include <thread>

namespace brimvale {
namespace {

// Subtrees per thread to share out, so that one deep subtree does not leave the others idle.
constexpr std::size_t kSubtreesPerThread = 16;

// A piece of the pre-order: one node of the top levels, or a node with everything below it.
struct Segment {
    const FileNode* node = nullptr;
    std::int64_t parentSegment = -1; // always a single node; -1 for the root
    bool wholeSubtree = false;
    std::size_t nodes = 1;
    std::size_t nameBytes = 0;
    std::size_t pidBytes = 0;
    std::size_t mimeBytes = 0;
    // Where the segment starts in the columns and their texts.
    std::size_t first = 0;
    std::size_t nameOffset = 0;
    std::size_t pidOffset = 0;
    std::size_t mimeOffset = 0;
};

std::string_view providerIDOf(const FileNode& node) {
    return node.providerID().value_or(std::string_view());
}

std::string_view mimeTypeOf(const FileNode& node) {
    return node.mimeType().value_or(std::string_view());
}

// Pre-order over a subtree, children in their stored order.
template <class Visit> void walkPreOrder(const FileNode& top, Visit visit) {
    std::vector<const FileNode*> stack{&top};
    while (!stack.empty()) {
        const FileNode* node = stack.back();
        stack.pop_back();
        visit(*node);
        const auto& children = node->children();
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            stack.push_back(child->get());
        }
    }
}

void countSegment(Segment& segment) {
    segment.nodes = 0;
    walkPreOrder(*segment.node, [&](const FileNode& node) {
        ++segment.nodes;
        segment.nameBytes += node.name().size();
        segment.pidBytes += providerIDOf(node).size();
        segment.mimeBytes += mimeTypeOf(node).size();
    });
}

// Where the next node's texts go.
struct TextOffsets {
    std::size_t name = 0;
    std::size_t pid = 0;
    std::size_t mime = 0;
};

void placeNode(const FileNode& node, std::size_t index, std::int32_t parentIndex,
               TextOffsets& offsets, CacheSnapshot& snapshot) {
    snapshot.names.place(index, offsets.name, node.name());
    offsets.name += node.name().size();
    const std::string_view pid = providerIDOf(node);
    snapshot.pids.place(index, offsets.pid, pid);
    offsets.pid += pid.size();
    const std::string_view mime = mimeTypeOf(node);
    snapshot.mimes.place(index, offsets.mime, mime);
    offsets.mime += mime.size();
    snapshot.parents[index] = parentIndex;
    snapshot.isDirs[index] = node.isDirectory() ? 1 : 0;
    snapshot.sizes[index] = node.size();
    const auto modified = node.modifiedDate();
    snapshot.modTimes[index] = modified ? modified->secondsSinceReferenceDate : 0.0;
}

// Writes the segment's nodes at its place; `parentIndex` is its top node's parent. A single node
// writes only itself: its children are segments of their own.
void placeSegment(const Segment& segment, std::int32_t parentIndex, CacheSnapshot& snapshot) {
    TextOffsets offsets{segment.nameOffset, segment.pidOffset, segment.mimeOffset};
    if (!segment.wholeSubtree) {
        placeNode(*segment.node, segment.first, parentIndex, offsets, snapshot);
        return;
    }
    std::size_t index = segment.first;
    // Parents come before their children, so a node's index is known when its children are met.
    struct Frame {
        const FileNode* node;
        std::int32_t parentIndex;
    };
    std::vector<Frame> stack{{segment.node, parentIndex}};
    while (!stack.empty()) {
        const Frame frame = stack.back();
        stack.pop_back();
        placeNode(*frame.node, index, frame.parentIndex, offsets, snapshot);
        const auto& children = frame.node->children();
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            stack.push_back({child->get(), static_cast<std::int32_t>(index)});
        }
        ++index;
    }
}

// The depth at which enough subtrees start to share them out among `threads`, if any.
std::optional<int> splitDepth(const FileNode& root, unsigned threads) {
    std::vector<const FileNode*> level{&root};
    for (int depth = 0; depth < 64 && !level.empty(); ++depth) {
        if (level.size() >= threads * kSubtreesPerThread) {
            return depth;
        }
        std::vector<const FileNode*> next;
        for (const FileNode* node : level) {
            for (const auto& child : node->children()) {
                if (!child->children().empty()) {
                    next.push_back(child.get());
                }
            }
        }
        level = std::move(next);
    }
    return std::nullopt;
}

// The top levels node by node and every subtree below `depth` as one segment, in pre-order.
std::vector<Segment> segmentsOf(const FileNode& root, std::optional<int> depth) {
    std::vector<Segment> segments;
    struct Frame {
        const FileNode* node;
        std::int64_t parentSegment;
        int depth;
    };
    std::vector<Frame> stack{{&root, -1, 0}};
    while (!stack.empty()) {
        const Frame frame = stack.back();
        stack.pop_back();
        const bool whole = !depth || frame.depth >= *depth || frame.node->children().empty();
        segments.push_back(
            {.node = frame.node, .parentSegment = frame.parentSegment, .wholeSubtree = whole});
        if (whole) {
            continue;
        }
        const auto self = static_cast<std::int64_t>(segments.size() - 1);
        const auto& children = frame.node->children();
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            stack.push_back({child->get(), self, frame.depth + 1});
        }
    }
    return segments;
}

// Runs work(segment) for every whole subtree, on `threads` threads when there are several.
template <class Work>
void forEachSubtree(std::vector<Segment>& segments, unsigned threads, Work work) {
    std::vector<Segment*> subtrees;
    for (Segment& segment : segments) {
        if (segment.wholeSubtree) {
            subtrees.push_back(&segment);
        }
    }
    std::atomic<std::size_t> next{0};
    const auto run = [&] {
        for (std::size_t i = next++; i < subtrees.size(); i = next++) {
            work(*subtrees[i]);
        }
    };
    std::vector<std::jthread> helpers;
    for (unsigned t = 1; t < threads && subtrees.size() > 1; ++t) {
        helpers.emplace_back(run);
    }
    run();
}

} // namespace

CacheSnapshot snapshotForCache(const FileNode& root) {
    const unsigned threads = std::clamp(std::thread::hardware_concurrency(), 1u, 8u);
    // Two passes, each shared out among the cores by subtrees: count every subtree's nodes and
    // text, then write each at its place. Walking a tree of scattered nodes is bound by memory
    // latency, so the cores add up; and the columns are allocated once at their exact size.
    std::vector<Segment> segments =
        segmentsOf(root, threads > 1 ? splitDepth(root, threads) : std::nullopt);
    for (Segment& segment : segments) {
        if (!segment.wholeSubtree) {
            segment.nameBytes = segment.node->name().size();
            segment.pidBytes = providerIDOf(*segment.node).size();
            segment.mimeBytes = mimeTypeOf(*segment.node).size();
        }
    }
    forEachSubtree(segments, threads, countSegment);

    Segment total;
    total.nodes = 0;
    for (Segment& segment : segments) {
        segment.first = total.nodes;
        segment.nameOffset = total.nameBytes;
        segment.pidOffset = total.pidBytes;
        segment.mimeOffset = total.mimeBytes;
        total.nodes += segment.nodes;
        total.nameBytes += segment.nameBytes;
        total.pidBytes += segment.pidBytes;
        total.mimeBytes += segment.mimeBytes;
    }
    if (total.nodes > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
        fatalError("a tree of 2^31 nodes or more cannot be saved in the cache");
    }

    CacheSnapshot snapshot;
    snapshot.rootPath = root.path();
    snapshot.rootName = std::string(root.name());
    snapshot.names.resizeForPlacing(total.nodes, total.nameBytes);
    snapshot.pids.resizeForPlacing(total.nodes, total.pidBytes);
    snapshot.mimes.resizeForPlacing(total.nodes, total.mimeBytes);
    snapshot.parents.resize(total.nodes);
    snapshot.isDirs.resize(total.nodes);
    snapshot.sizes.resize(total.nodes);
    snapshot.modTimes.resize(total.nodes);

    const auto parentIndexOf = [&](const Segment& segment) {
        return segment.parentSegment < 0
                   ? std::int32_t{-1}
                   : static_cast<std::int32_t>(
                         segments[static_cast<std::size_t>(segment.parentSegment)].first);
    };
    for (const Segment& segment : segments) {
        if (!segment.wholeSubtree) {
            placeSegment(segment, parentIndexOf(segment), snapshot);
        }
    }
    forEachSubtree(segments, threads, [&](const Segment& segment) {
        placeSegment(segment, parentIndexOf(segment), snapshot);
    });
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
