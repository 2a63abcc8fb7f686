// The folder-by-folder cloud scan against rclone itself, on a real tree behind a local rclone
// remote (type alias, in a temporary RCLONE_CONFIG): the scan (one `rclone lsjson` run per
// folder, RcloneTreeScan) against the same runs of bare rclone one after another, so the
// figure is what Brimvale adds around rclone. Then the per-folder merge of one folder of
// 10,000 entries, and the streamed scan of the same tree for reference.
//
//   remote_scan_bench [FOLDERS] [RUNS]      (default 200 folders, median of 3 runs)
#include "bench/BenchMeasures.h"
#include "core/rclone/ChildProcess.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/RcloneListingMerge.h"
#include "core/rclone/RcloneListingParser.h"
#include "core/rclone/RcloneTreeScan.h"
#include "core/support/HeapTuning.h"
#include "core/support/InMemorySettingsStore.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace brimvale;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr const char* kRclone = "/usr/bin/rclone";

using brimvale::bench::millisecondsSince;

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// `folders` folders (a root, tops of 19 subfolders each), 12 sparse files in each.
void makeTree(const fs::path& root, std::size_t folders) {
    std::vector<fs::path> made{root};
    fs::create_directories(root);
    for (std::size_t top = 0; made.size() < folders; ++top) {
        const fs::path parent = root / ("top " + std::to_string(top));
        fs::create_directory(parent);
        made.push_back(parent);
        for (int sub = 0; sub < 19 && made.size() < folders; ++sub) {
            const fs::path folder = parent / ("album-" + std::to_string(sub));
            fs::create_directory(folder);
            made.push_back(folder);
        }
    }
    std::size_t file = 0;
    for (const auto& folder : made) {
        for (int i = 0; i < 12; ++i, ++file) {
            const fs::path path = folder / ("IMG_" + std::to_string(file) + ".jpg");
            std::ofstream(path).close();
            fs::resize_file(path, 1000 + file * 7919 % 5'000'000);
        }
    }
}

// The rclone targets of every folder of a scanned tree, in pre-order.
void collectTargets(const FileNode& node, const std::string& target,
                    std::vector<std::string>& targets) {
    targets.push_back(target);
    for (const auto& child : node.children()) {
        if (child->isDirectory()) {
            collectTargets(*child, RcloneTreeScan::childTarget(target, child->name()), targets);
        }
    }
}

// One folder's listing as `rclone lsjson` writes it.
std::string makeFolderListing(std::size_t entries) {
    std::string out = "[\n";
    for (std::size_t i = 0; i < entries; ++i) {
        const bool folder = i % 50 == 0;
        const std::string name = (folder ? "folder " : "IMG_") + std::to_string(i) +
                                 (folder ? "" : (i % 3 ? ".jpg" : ".mov"));
        out += (i == 0 ? "" : ",\n");
        out += "{\"Path\":\"" + name + "\",\"Name\":\"" + name +
               "\",\"Size\":" + (folder ? std::string("-1") : std::to_string(1000 + i * 37)) +
               ",\"MimeType\":\"" + (folder ? "inode/directory" : "image/jpeg") +
               "\",\"ModTime\":\"2024-05-01T10:00:00Z\",\"IsDir\":" + (folder ? "true" : "false") +
               "}";
    }
    out += "\n]\n";
    return out;
}

} // namespace

int main(int argc, char** argv) {
    adoptHugePageHeap(argv);
    const std::size_t folderCount = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 200;
    const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;

    const fs::path scratch =
        fs::temp_directory_path() / ("brimvale-remote-bench-" + std::to_string(::getpid()));
    const fs::path tree = scratch / "tree";
    makeTree(tree, folderCount);
    const fs::path config = scratch / "rclone.conf";
    std::ofstream(config) << "[bench]\ntype = alias\nremote = " << tree.string() << "\n";

    const std::vector<EnvironmentChange> environment{{"RCLONE_CONFIG", config.string()}};
    auto settings = std::make_shared<InMemorySettingsStore>();
    GenericRcloneAdapter adapter(
        "bench", "alias", "Bench",
        {.runner = RcloneRunner(
             {.searchLocations = {.fixedPaths = {kRclone}}, .environmentChanges = environment}),
         .settings = settings});

    // The folders the scan lists, found by a first (untimed) scan, which also warms the caches.
    FileNodeRef first = adapter.scan({.path = "", .scanSession = 1, .listOneFolderAtATime = true});
    std::vector<std::string> targets;
    collectTargets(*first, "bench:", targets);
    if (targets.size() != folderCount) {
        std::fprintf(stderr, "remote_scan_bench: the scan saw %zu folders, %zu were made\n",
                     targets.size(), folderCount);
        return 1;
    }

    // The streamed scan asks `rclone backend features` once; the answer is kept in the settings.
    adapter.scan({.path = "", .scanSession = 1});

    // Alternating, so both see the same machine.
    std::vector<double> scanTimes;
    std::vector<double> bareTimes;
    std::vector<double> streamedTimes;
    for (int run = 0; run < runs; ++run) {
        auto start = Clock::now();
        FileNodeRef root =
            adapter.scan({.path = "", .scanSession = run + 2, .listOneFolderAtATime = true});
        scanTimes.push_back(millisecondsSince(start));
        if (root->subtreeNodeCount() != first->subtreeNodeCount()) {
            std::fprintf(stderr, "remote_scan_bench: scans differ\n");
            return 1;
        }

        start = Clock::now();
        for (const auto& target : targets) {
            auto child = ChildProcess::spawn({.executable = kRclone,
                                              .arguments = adapter.lsjsonArguments(target),
                                              .environmentChanges = environment,
                                              .standardInput = ChildStandardInput::nullDevice});
            const auto result = child->collectOutputAndWait();
            if (result.exitStatus != 0) {
                std::fprintf(stderr, "remote_scan_bench: rclone lsjson %s failed: %s\n",
                             target.c_str(), result.standardError.c_str());
                return 1;
            }
        }
        bareTimes.push_back(millisecondsSince(start));

        start = Clock::now();
        FileNodeRef streamed = adapter.scan({.path = "", .scanSession = 1});
        streamedTimes.push_back(millisecondsSince(start));
        if (streamed->subtreeNodeCount() != first->subtreeNodeCount()) {
            std::fprintf(stderr, "remote_scan_bench: the streamed scan differs\n");
            return 1;
        }
    }
    const double scanMedian = median(scanTimes);
    const double bareMedian = median(bareTimes);
    std::printf("remote.per_folder_scan_ms: %.1f ms (%zu folders, %d runs)\n", scanMedian,
                targets.size(), runs);
    std::printf("remote.bare_lsjson_runs_ms: %.1f ms\n", bareMedian);
    std::printf("remote.overhead_ratio: %.3f ratio\n", scanMedian / bareMedian);
    std::printf("remote.streamed_scan_ms: %.1f ms\n", median(streamedTimes));

    // One folder of 10,000 entries merged into the tree, as the per-folder scan does it (merge,
    // then one level of roll-up and sort): into an empty folder, and again into the folder that
    // already holds them (a rescan, every entry replacing its namesake).
    {
        const std::string listing = makeFolderListing(10'000);
        std::vector<double> decodeTimes;
        std::vector<double> mergeTimes;
        std::vector<double> rescanTimes;
        for (int run = 0; run < 9; ++run) {
            auto start = Clock::now();
            const std::vector<RcloneEntry> entries = parseJSON(listing, "bench:big");
            decodeTimes.push_back(millisecondsSince(start));
            const auto folder =
                FileNode::make({.name = "big", .path = "/big", .isDirectory = true});
            const ListingMergeContext context{"bench:big", "bench", 1};
            start = Clock::now();
            mergeListingEntries(entries, *folder, context);
            refreshAggregatedSize(*folder);
            mergeTimes.push_back(millisecondsSince(start));
            if (folder->children().size() != entries.size()) {
                std::fprintf(stderr, "remote_scan_bench: the merge lost entries\n");
                return 1;
            }
            const ListingMergeContext again{"bench:big", "bench", 2};
            start = Clock::now();
            mergeListingEntries(entries, *folder, again);
            refreshAggregatedSize(*folder);
            rescanTimes.push_back(millisecondsSince(start));
        }
        std::printf("remote.merge_10k_ms: %.2f ms\n", median(mergeTimes));
        std::printf("remote.merge_10k_rescan_ms: %.2f ms\n", median(rescanTimes));
        std::printf("remote.decode_10k_ms: %.2f ms\n", median(decodeTimes));
    }

    fs::remove_all(scratch);
    return 0;
}
