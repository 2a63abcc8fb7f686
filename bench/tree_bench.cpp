// Builds a tree shaped like a real disk (100,000 folders of 10 files, paths of about 60
// characters), then sorts, rolls up, relinks, flattens and frees it, printing one figure per
// line as "name: value unit". Run the release build: build/release/bench/tree_bench
#include "core/model/FileNode.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <malloc.h>
#include <string>
#include <vector>

using namespace brimvale;

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

// A small deterministic generator, so every run builds the same tree.
struct Random {
    std::uint64_t state = 0x9E3779B97F4A7C15ULL;
    std::uint64_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    std::uint64_t below(std::uint64_t limit) { return next() % limit; }
};

const std::array<const char*, 12> kTopFolders = {
    "Documents", "Pictures", "Projects", "Music", "Downloads", "Videos",
    ".cache",    ".local",   "Desktop",  "src",   "Backups",   "node_modules"};
const std::array<const char*, 16> kExtensions = {".jpg", ".png",  ".txt", ".pdf", ".cpp", ".h",
                                                 ".js",  ".json", ".md",  ".mp3", ".mov", ".zip",
                                                 ".o",   ".log",  ".py",  ".html"};

std::string fileName(Random& random, int index) {
    char name[64];
    switch (random.below(5)) {
    case 0:
        std::snprintf(name, sizeof name, "IMG_2019%02d%02d_%06d%s",
                      static_cast<int>(random.below(12) + 1),
                      static_cast<int>(random.below(28) + 1),
                      static_cast<int>(random.below(240000)), kExtensions[random.below(2)]);
        break;
    case 1:
        std::snprintf(name, sizeof name, "file%d%s", index,
                      kExtensions[random.below(kExtensions.size())]);
        break;
    case 2:
        std::snprintf(name, sizeof name, "index%s", kExtensions[random.below(kExtensions.size())]);
        break;
    case 3:
        std::snprintf(name, sizeof name, "report-%04d-final%s",
                      static_cast<int>(random.below(10000)),
                      kExtensions[random.below(kExtensions.size())]);
        break;
    default:
        std::snprintf(name, sizeof name, "a%d.out", index);
        break;
    }
    return name;
}

std::int64_t fileSize(Random& random) {
    switch (random.below(4)) {
    case 0:
        return 0; // many empty files: ties are common on real disks
    case 1:
        return 4096;
    default:
        return static_cast<std::int64_t>(random.below(50'000'000));
    }
}

// 100 folders under each of 1,000 project folders, each holding 10 files.
FileNodeRef buildTree(std::int64_t& nodes) {
    Random random;
    const std::string rootPath = "/home/alexandra";
    auto root = FileNode::make({.name = "alexandra", .path = rootPath, .isDirectory = true});
    nodes = 1;
    for (int project = 0; project < 1000; ++project) {
        const std::string projectName =
            std::string(kTopFolders[static_cast<std::size_t>(project) % kTopFolders.size()]) + "-" +
            std::to_string(project);
        const std::string projectPath = rootPath + "/" + projectName;
        auto projectNode =
            FileNode::make({.name = projectName, .path = projectPath, .isDirectory = true});
        ++nodes;
        for (int sub = 0; sub < 99; ++sub) {
            const std::string folderName = "subfolder-" + std::to_string(sub);
            const std::string folderPath = projectPath + "/" + folderName;
            auto folderNode =
                FileNode::make({.name = folderName, .path = folderPath, .isDirectory = true});
            ++nodes;
            for (int f = 0; f < 10; ++f) {
                std::string name = fileName(random, f);
                std::string path = folderPath + "/" + name;
                folderNode->mutableChildren().push_back(FileNode::make(
                    {.name = std::move(name),
                     .path = std::move(path),
                     .size = fileSize(random),
                     .modifiedDate = Date{6.0e8 + static_cast<double>(random.below(1'000'000))}}));
                ++nodes;
            }
            projectNode->mutableChildren().push_back(std::move(folderNode));
        }
        root->mutableChildren().push_back(std::move(projectNode));
    }
    return root;
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

int main() {
    malloc_trim(0);
    const long residentBefore = residentBytes();
    auto start = std::chrono::steady_clock::now();
    std::int64_t nodes = 0;
    FileNodeRef root = buildTree(nodes);
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
