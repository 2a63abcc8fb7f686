// Saves and loads the scan cache of the shared disk-like tree (about 1.09 million nodes) and
// prints one figure per line as "name: value unit". The load runs in a fresh process so its
// peak memory is its own. Run the release build: build/release/bench/cache_bench
#include "bench/BenchMeasures.h"
#include "bench/DiskLikeTree.h"
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/CacheSnapshot.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/support/HeapTuning.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

using namespace brimvale;
using brimvale::bench::secondsSince;
using brimvale::bench::statusKilobytes;

namespace {

int loadOnly(const std::string& directory) {
    ScanCache cache(directory);
    const long baseline = statusKilobytes("VmRSS");
    const auto start = std::chrono::steady_clock::now();
    auto loaded = cache.loadData("bench");
    if (!loaded) {
        std::fprintf(stderr, "cache_bench: the cache file was not written\n");
        return 1;
    }
    auto root = decodeCacheNode(loaded->bytes);
    loaded.reset();
    const double loadSeconds = secondsSince(start);
    if (!root) {
        std::fprintf(stderr, "cache_bench: the cache file did not decode\n");
        return 1;
    }
    const long treeKilobytes = statusKilobytes("VmRSS") - baseline;
    const long peakKilobytes = statusKilobytes("VmHWM") - baseline;
    std::printf("cache.load_1m_s: %.3f s\n", loadSeconds);
    std::printf("cache.loaded_nodes: %lld nodes\n",
                static_cast<long long>((*root)->subtreeNodeCount()));
    std::printf("cache.load_peak_mb: %.1f MB\n", static_cast<double>(peakKilobytes) / 1024.0);
    std::printf("cache.loaded_tree_mb: %.1f MB\n", static_cast<double>(treeKilobytes) / 1024.0);
    std::printf("cache.load_peak_vs_tree: %.2f x\n",
                static_cast<double>(peakKilobytes) /
                    static_cast<double>(std::max(treeKilobytes, 1L)));
    return 0;
}

// brimvale-cli opening the saved scan of an account ("bench:", an alias remote): the whole
// program, from start to the listing printed.
void timeCommandLineOpen(const std::string& home) {
    {
        std::ofstream config(home + "/rclone.conf");
        config << "[bench]\ntype = alias\nremote = /nonexistent\n";
    }
    const std::string command = "XDG_CACHE_HOME='" + home + "' XDG_CONFIG_HOME='" + home +
                                "/config' RCLONE_CONFIG='" + home + "/rclone.conf' '" +
                                BRIMVALE_CLI_PROGRAM + "' scan bench: --quiet >/dev/null";
    const auto start = std::chrono::steady_clock::now();
    const int status = std::system(command.c_str());
    const double seconds = secondsSince(start);
    if (status == 0) {
        std::printf("cli.open_cached_1m_s: %.3f s\n", seconds);
    } else {
        std::printf("cli.open_cached_1m_s: failed (status %d)\n", status);
    }
}

} // namespace

int main(int argc, char** argv) {
    brimvale::adoptHugePageHeap(argv);
    if (argc == 3 && std::strcmp(argv[1], "--load") == 0) {
        return loadOnly(argv[2]);
    }
    char homeTemplate[] = "/tmp/brimvale-cache-bench-XXXXXX";
    const std::string home = ::mkdtemp(homeTemplate);
    // Laid out as a user's cache folder, so that brimvale-cli can open the saved scan too.
    const std::string directory = home + "/Brimvale";

    std::int64_t nodes = 0;
    FileNodeRef root = bench::buildDiskLikeTree(nodes);
    root->propagateSizes();
    root->sortChildren();

    ScanCache cache(directory);
    auto start = std::chrono::steady_clock::now();
    const CacheSnapshot snapshot = snapshotForCache(*root);
    const double snapshotSeconds = secondsSince(start);
    // Encoded, compressed and written as one stream, as the application saves a scan.
    const auto streamStart = std::chrono::steady_clock::now();
    std::uint64_t fileBytes = 0;
    const auto failed = cache.write("bench", [&](const FileAppender& append) {
        writeCacheSnapshot(snapshot, "", [&](std::span<const std::uint8_t> bytes) {
            fileBytes += bytes.size();
            append(bytes);
        });
    });
    const double streamSeconds = secondsSince(streamStart);
    const double totalWriteSeconds = secondsSince(start);
    if (failed) {
        std::fprintf(stderr, "cache_bench: %s\n", failed->c_str());
        return 1;
    }

    std::printf("cache.nodes: %lld nodes\n", static_cast<long long>(nodes));
    std::printf("cache.file_bytes: %llu bytes\n", static_cast<unsigned long long>(fileBytes));
    std::printf("cache.snapshot_s: %.3f s\n", snapshotSeconds);
    std::printf("cache.encode_compress_write_s: %.3f s\n", streamSeconds);
    std::printf("cache.write_1m_s: %.3f s\n", totalWriteSeconds);
    std::fflush(stdout);

    root.reset();
    char* childArguments[] = {argv[0], const_cast<char*>("--load"),
                              const_cast<char*>(directory.c_str()), nullptr};
    pid_t child = 0;
    int status = 1;
    if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, childArguments, environ) == 0) {
        waitpid(child, &status, 0);
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        timeCommandLineOpen(home);
    }
    std::filesystem::remove_all(home);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
