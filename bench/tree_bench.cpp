// Builds a tree shaped like a real disk (100,000 folders of 10 files, paths of about 60
// characters), then sorts, rolls up, relinks, flattens and frees it, printing one figure per
// line as "name: value unit". Run the release build: build/release/bench/tree_bench
#include "bench/DiskLikeTree.h"
#include "core/model/FileNode.h"
#include "core/support/HeapTuning.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <malloc.h>
#include <string>
#include <vector>

using namespace brimvale;
using brimvale::bench::buildDiskLikeTree;

namespace {

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

long residentBytes() {
    long pages = 0;
    long resident = 0;
    if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2) {
            resident = 0;
        }
        std::fclose(statm);
    }
    return resident * 4096;
}

// A pre-order walk into parallel columns, as a cache snapshot does.
std::size_t flatten(const FileNodeRef& root) {
    std::vector<std::string_view> names;
    std::vector<std::int32_t> parents;
    std::vector<std::int64_t> sizes;
    std::vector<std::pair<const FileNode*, std::int32_t>> stack{{root.get(), -1}};
    while (!stack.empty()) {
        const auto [node, parent] = stack.back();
        stack.pop_back();
        const auto index = static_cast<std::int32_t>(names.size());
        names.push_back(node->name());
        parents.push_back(parent);
        sizes.push_back(node->size());
        const auto& children = node->children();
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            stack.emplace_back(child->get(), index);
        }
    }
    return names.size();
}

} // namespace

int main(int, char** argv) {
    brimvale::adoptHugePageHeap(argv);
    malloc_trim(0);
    const long residentBefore = residentBytes();
    auto start = std::chrono::steady_clock::now();
    std::int64_t nodes = 0;
    FileNodeRef root = buildDiskLikeTree(nodes);
    const double buildSeconds = secondsSince(start);
    const long residentAfter = residentBytes();

    start = std::chrono::steady_clock::now();
    root->sortChildren();
    const double sortSeconds = secondsSince(start);

    start = std::chrono::steady_clock::now();
    root->propagateSizes();
    const double rollupSeconds = secondsSince(start);

    start = std::chrono::steady_clock::now();
    root->relinkDescendantParentPointers();
    const double relinkSeconds = secondsSince(start);

    start = std::chrono::steady_clock::now();
    const std::size_t flattened = flatten(root);
    const double flattenSeconds = secondsSince(start);

    start = std::chrono::steady_clock::now();
    root.reset();
    const double freeSeconds = secondsSince(start);

    // A chain of 100,000 folders through every pass.
    start = std::chrono::steady_clock::now();
    auto chain = FileNode::make({.name = "deep", .path = "/deep", .isDirectory = true});
    FileNode* tip = chain.get();
    for (int level = 0; level < 100'000; ++level) {
        auto next = FileNode::make({.name = "d", .path = "d", .isDirectory = true, .size = 1});
        FileNode* raw = next.get();
        tip->mutableChildren().push_back(std::move(next));
        tip = raw;
    }
    chain->sortChildren();
    chain->propagateSizes();
    chain->relinkDescendantParentPointers();
    chain.reset();
    const double chainSeconds = secondsSince(start);

    const auto perNode = [&](double seconds) {
        return seconds * 1e9 / static_cast<double>(nodes);
    };
    std::printf("tree.nodes: %lld nodes\n", static_cast<long long>(nodes));
    std::printf("tree.flattened_nodes: %zu nodes\n", flattened);
    std::printf("tree.bytes_per_node: %.1f bytes\n",
                static_cast<double>(residentAfter - residentBefore) / static_cast<double>(nodes));
    std::printf("tree.sizeof_node: %zu bytes\n", sizeof(FileNode));
    std::printf("tree.build_ns_per_node: %.1f ns\n", perNode(buildSeconds));
    std::printf("tree.sort_ns_per_node: %.1f ns\n", perNode(sortSeconds));
    std::printf("tree.rollup_ns_per_node: %.1f ns\n", perNode(rollupSeconds));
    std::printf("tree.relink_ns_per_node: %.1f ns\n", perNode(relinkSeconds));
    std::printf("tree.flatten_ns_per_node: %.1f ns\n", perNode(flattenSeconds));
    std::printf("tree.free_ns_per_node: %.1f ns\n", perNode(freeSeconds));
    std::printf("tree.sort_rollup_relink_s: %.3f s\n", sortSeconds + rollupSeconds + relinkSeconds);
    std::printf("tree.deep_chain_100k_all_passes_s: %.3f s\n", chainSeconds);
    return 0;
}
