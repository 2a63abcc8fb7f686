// The streamed cloud scan without a network: a listing of the shape `rclone lsjson -R` writes,
// decoded and merged in process, then read through a child process as a scan reads rclone.
// Prints how fast entries are decoded and merged, and how much memory a scan needs at its peak
// against what the finished tree keeps.
//
//   stream_scan_bench [FILES]      (default 500,000 files, 20 to a folder)
#include "bench/BenchMeasures.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/RcloneListingStream.h"
#include "core/rclone/RcloneStreamMerge.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace brimvale;
using Clock = std::chrono::steady_clock;

using brimvale::bench::millisecondsSince;

// Folders of 20 files, 30 folders to a parent, names of varied length; the folder entries of a
// level come before the entries inside them, as rclone's walk writes them.
std::string makeListing(std::size_t files) {
    std::string out = "[\n";
    bool first = true;
    const auto entry = [&](const std::string& path, const std::string& name, long long size,
                           bool folder) {
        out += first ? "" : ",\n";
        first = false;
        out += "{\"Path\":\"" + path + "\",\"Name\":\"" + name +
               "\",\"Size\":" + std::to_string(size) +
               ",\"MimeType\":\"application/octet-stream\",\"ModTime\":\"2024-05-01T10:00:00Z\","
               "\"IsDir\":" +
               (folder ? "true" : "false") + "}";
    };
    const std::size_t folders = (files + 19) / 20;
    const std::size_t tops = std::max<std::size_t>(1, folders / 30);
    for (std::size_t top = 0; top < tops; ++top) {
        const std::string name = "collection " + std::to_string(top);
        entry(name, name, -1, true);
    }
    std::size_t made = 0;
    for (std::size_t folder = 0; folder < folders; ++folder) {
        const std::string parent = "collection " + std::to_string(folder % tops);
        const std::string name = "album-" + std::to_string(folder);
        const std::string path = parent + "/" + name;
        entry(path, name, -1, true);
        for (int file = 0; file < 20 && made < files; ++file, ++made) {
            const std::string fileName =
                "IMG_" + std::to_string(made) + (file % 3 ? ".jpg" : ".mov");
            entry(path + "/" + fileName, fileName,
                  static_cast<long long>(1000 + made * 37 % 9000000), false);
        }
    }
    out += "\n]\n";
    return out;
}

std::size_t heapInUse() {
    return mallinfo2().uordblks + mallinfo2().hblkhd;
}

} // namespace

int main(int argc, char** argv) {
    const std::size_t files = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 500'000;
    const std::string listing = makeListing(files);
    const double megabytes = static_cast<double>(listing.size()) / 1e6;

    // Decoding alone, in 64 KiB chunks as they come from a pipe.
    {
        const auto start = Clock::now();
        RcloneListingStream stream("bench:");
        std::vector<RcloneEntry> entries;
        std::size_t decoded = 0;
        for (std::size_t at = 0; at < listing.size(); at += 65536) {
            stream.feed(std::string_view(listing).substr(at, 65536), entries);
            decoded += entries.size();
            entries.clear();
        }
        stream.finish(entries);
        const double elapsed = millisecondsSince(start);
        std::printf("remote.stream_decode_ms: %.1f ms (%zu entries, %.1f MB)\n", elapsed,
                    decoded + entries.size(), megabytes);
    }

    // Decoding and merging into a new tree, then into that tree again (a rescan).
    {
        RcloneListingStream stream("bench:");
        std::vector<RcloneEntry> entries;
        stream.feed(listing, entries);
        stream.finish(entries);
        const auto root = FileNode::make({.name = "bench", .path = "/", .isDirectory = true});
        auto start = Clock::now();
        RcloneStreamMerge merge(root, 1);
        merge.merge(entries);
        merge.finish();
        std::printf("remote.stream_merge_ms: %.1f ms (%zu entries)\n", millisecondsSince(start),
                    entries.size());
        start = Clock::now();
        RcloneStreamMerge again(root, 2);
        again.merge(entries);
        again.finish();
        std::printf("remote.stream_merge_rescan_ms: %.1f ms\n", millisecondsSince(start));

        std::vector<RcloneEntry> tenThousand(
            entries.begin(), entries.begin() + std::min<std::size_t>(10'000, entries.size()));
        const auto small = FileNode::make({.name = "small", .path = "/", .isDirectory = true});
        start = Clock::now();
        RcloneStreamMerge once(small, 1);
        once.merge(tenThousand);
        once.finish();
        std::printf("remote.stream_merge_10k_ms: %.2f ms\n", millisecondsSince(start));
    }
    malloc_trim(0);

    // A whole scan through a child process writing the listing, as rclone would.
    const auto folder = std::filesystem::temp_directory_path() /
                        ("brimvale-stream-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    {
        std::ofstream(folder / "listing.json") << listing;
        std::ofstream(folder / "rclone") << "#!/bin/sh\n[ \"$1\" = lsjson ] || exit 1\nexec cat '"
                                         << (folder / "listing.json").string() << "'\n";
        std::filesystem::permissions(folder / "rclone", std::filesystem::perms::owner_all);
    }
    {
        GenericRcloneAdapter adapter(
            "bench", "sftp", "Bench",
            {.runner = RcloneRunner(
                 {.searchLocations = {.fixedPaths = {(folder / "rclone").string()}}})});
        malloc_trim(0);
        const std::size_t before = heapInUse();
        std::atomic<bool> done{false};
        std::atomic<std::size_t> peak{before};
        std::thread sampler([&] {
            while (!done.load()) {
                peak = std::max(peak.load(), heapInUse());
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        const auto start = Clock::now();
        FileNodeRef root = adapter.scan({.path = "", .scanSession = 1});
        const double elapsed = millisecondsSince(start);
        done = true;
        sampler.join();
        malloc_trim(0);
        const std::size_t kept = heapInUse() - before;
        const std::size_t nodes = static_cast<std::size_t>(root->subtreeNodeCount());
        std::printf("remote.stream_scan_ms: %.1f ms (%zu nodes, through a child process)\n",
                    elapsed, nodes);
        std::printf("remote.tree_bytes_per_node: %.1f bytes\n",
                    static_cast<double>(kept) / static_cast<double>(nodes));
        std::printf(
            "remote.scan_peak_over_tree: %.2f (peak %.1f MB above the start, tree %.1f MB)\n",
            static_cast<double>(peak - before) / static_cast<double>(kept),
            static_cast<double>(peak - before) / 1e6, static_cast<double>(kept) / 1e6);
        root->retain(); // not freed node by node before exit
    }
    std::filesystem::remove_all(folder);
    return 0;
}
