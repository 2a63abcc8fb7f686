// Writes the shared disk-like tree (about 1.09 million items) as an export in ncdu's JSON
// format, then opens it, both through files as the commands do. Prints the time of each way,
// the file's size and how much the reading grew the process's resident memory by: the opened
// tree, while the text passes through one fixed buffer. The file is opened in a process of its
// own, as `brimvale-cli open` opens it, not in a heap the written tree has just left.
//
//   ncdu_json_bench [FILE]   (default: a file in the temporary folder, removed afterwards)
#include "bench/BenchMeasures.h"
#include "bench/DiskLikeTree.h"
#include "core/interchange/ExportTextSource.h"
#include "core/interchange/NcduExportReader.h"
#include "core/interchange/NcduExportWriter.h"
#include "core/support/HeapTuning.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

using namespace brimvale;
using Clock = std::chrono::steady_clock;

using brimvale::bench::millisecondsSince;

// The process's resident memory now, in bytes.
double residentBytes() {
    std::ifstream statm("/proc/self/statm");
    double pages = 0;
    double resident = 0;
    statm >> pages >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

} // namespace

// Opens the export in this process, which has done nothing else: what `brimvale-cli open` does.
int readExport(const std::string& path, std::int64_t expectedItems) {
    const double residentBefore = residentBytes();
    const auto readStart = Clock::now();
    const auto source = ExportTextSource::open(path);
    const ImportedScan scan = readNcduExport(
        [&source](char* buffer, std::size_t capacity) { return source->read(buffer, capacity); });
    std::printf("ncdu_json_read: %.0f ms\n", millisecondsSince(readStart));
    std::printf("ncdu_json_read_items: %lld items\n",
                static_cast<long long>(scan.files + scan.folders));
    std::printf("ncdu_json_read_resident_growth: %.1f MB\n",
                (residentBytes() - residentBefore) / 1e6);
    std::fflush(stdout);
    // Like the command, exit without freeing the tree node by node.
    std::_Exit(scan.files + scan.folders == expectedItems ? 0 : 1);
}

int main(int argc, char** argv) {
    adoptHugePageHeap(argv);
    if (argc == 4 && std::string_view(argv[1]) == "--read") {
        return readExport(argv[2], std::stoll(argv[3]));
    }
    const bool ownFile = argc < 2;
    const std::string path =
        ownFile ? (std::filesystem::temp_directory_path() / "ncdu_json_bench.json").string()
                : argv[1];
    std::int64_t items = 0;
    {
        FileNodeRef tree = bench::buildDiskLikeTree(items);
        tree->propagateSizes();
        const auto writeStart = Clock::now();
        {
            std::ofstream file(path, std::ios::binary | std::ios::trunc);
            NcduExportWriter(file).write(*tree, "/home/alexandra",
                                         Date::fromUnixSeconds(1'700'000'000));
        }
        std::printf("ncdu_json_write_items: %lld items\n", static_cast<long long>(items));
        std::printf("ncdu_json_write: %.0f ms\n", millisecondsSince(writeStart));
    }
    std::printf("ncdu_json_file: %.1f MB\n",
                static_cast<double>(std::filesystem::file_size(path)) / 1e6);
    std::fflush(stdout);
    const std::string command = "'" + std::filesystem::read_symlink("/proc/self/exe").string() +
                                "' --read '" + path + "' " + std::to_string(items);
    const int status = std::system(command.c_str());
    if (ownFile) {
        std::filesystem::remove(path);
    }
    return status == 0 ? 0 : 1;
}
