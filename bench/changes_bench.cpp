// Compares two scans of the shared disk-like tree (about 1.09 million nodes, every one kept in
// the history records) and prints one figure per line as "name: value unit". The second scan
// grows every 50th file and renames every 100th folder (one folder gone and one new, with their
// files). The comparison runs in a fresh process, so its peak memory is its own; the tree's
// memory is measured in this one. Also prints what the history costs on disk, with and without
// the files under 1 MB. Run the release build: build/release/bench/changes_bench
#include "bench/BenchMeasures.h"
#include "bench/DiskLikeTree.h"
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/CacheSnapshot.h"
#include "core/persistence/history/ScanChanges.h"
#include "core/persistence/history/ScanSummary.h"
#include "core/support/FileBytes.h"
#include "core/support/HeapTuning.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

using namespace brimvale;
using brimvale::bench::secondsSince;
using brimvale::bench::statusKilobytes;

namespace {

double megabytes(double bytes) {
    return bytes / 1e6;
}

int compareOnly(const std::string& directory, double treeKilobytes) {
    const long baseline = statusKilobytes("VmRSS");
    const auto start = std::chrono::steady_clock::now();
    const ScanSummary before = decodeScanSummary(readFileBytes(directory + "/before").bytes);
    const ScanSummary after = decodeScanSummary(readFileBytes(directory + "/after").bytes);
    const double loadSeconds = secondsSince(start);
    const auto compareStart = std::chrono::steady_clock::now();
    const ScanComparison comparison = compareScans(before, after);
    const auto ordered = comparison.allByChange();
    const double compareSeconds = secondsSince(compareStart);
    const long peak = statusKilobytes("VmHWM") - baseline;
    std::printf("changes.nodes_per_scan: %zu nodes\n", after.nodeCount());
    std::printf("changes.changed_items: %zu items\n", comparison.changes.size());
    std::printf("changes.compare_1m_s: %.3f s\n", compareSeconds);
    std::printf("changes.load_two_records_s: %.3f s\n", loadSeconds);
    std::printf("changes.load_and_compare_s: %.3f s\n", loadSeconds + compareSeconds);
    std::printf("changes.peak_mb: %.1f MB\n", static_cast<double>(peak) / 1024.0);
    std::printf("changes.peak_vs_tree: %.2f x\n", static_cast<double>(peak) / treeKilobytes);
    return ordered.empty() ? 1 : 0;
}

} // namespace

int main(int argc, char** argv) {
    adoptHugePageHeap(argv);
    if (argc == 4 && std::string(argv[1]) == "--compare") {
        return compareOnly(argv[2], std::atof(argv[3]));
    }
    const long baseline = statusKilobytes("VmRSS");
    std::int64_t nodes = 0;
    FileNodeRef tree = bench::buildDiskLikeTree(nodes);
    tree->propagateSizes();
    const double treeKilobytes = static_cast<double>(statusKilobytes("VmRSS") - baseline);
    std::printf("changes.tree_nodes: %lld nodes\n", static_cast<long long>(nodes));
    std::printf("changes.tree_mb: %.1f MB\n", treeKilobytes / 1024.0);

    CacheSnapshot first = snapshotForCache(*tree);
    tree = nullptr;
    CacheSnapshot second = first;
    second.names = StringColumn();
    int files = 0;
    int folders = 0;
    for (std::size_t index = 0; index < first.nodeCount(); ++index) {
        const bool renamed = index > 0 && second.isDirs[index] != 0 && ++folders % 100 == 0;
        if (index > 0 && second.isDirs[index] == 0 && ++files % 50 == 0) {
            second.sizes[index] += 1'000'000;
        }
        second.names.push_back(renamed ? std::string(first.names[index]) + "-renamed"
                                       : std::string(first.names[index]));
    }
    rollUpFolderSizes(second);

    const auto folder =
        std::filesystem::temp_directory_path() / ("changes_bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    const auto cacheBytes = encodeCacheSnapshot(first, "bench");
    std::printf("changes.saved_scan_mb: %.1f MB\n",
                megabytes(static_cast<double>(cacheBytes->size())));
    auto summary = summarizeSnapshot(first, kDefaultHistoryFileThreshold);
    std::printf("changes.history_record_1mb_files_mb: %.2f MB (%zu nodes)\n",
                megabytes(static_cast<double>(encodeScanSummary(summary).size())),
                summary.nodeCount());
    const auto start = std::chrono::steady_clock::now();
    summary = summarizeSnapshot(first, 0);
    const auto bytes = encodeScanSummary(summary);
    std::printf("changes.record_whole_tree_s: %.3f s\n", secondsSince(start));
    std::printf("changes.history_record_whole_tree_mb: %.1f MB\n",
                megabytes(static_cast<double>(bytes.size())));
    writeFileAtomically((folder / "before").string(), bytes);
    writeFileAtomically((folder / "after").string(),
                        encodeScanSummary(summarizeSnapshot(second, 0)));
    std::fflush(stdout);
    const std::string command = "'" + std::string(argv[0]) + "' --compare '" + folder.string() +
                                "' " + std::to_string(treeKilobytes);
    const int status = std::system(command.c_str());
    std::filesystem::remove_all(folder);
    return status == 0 ? 0 : 1;
}
