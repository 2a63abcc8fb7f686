// Scans a folder with the local scanner alone (no coordinator, no saved scan) and prints its
// total: what `brimvale-cli scan --rescan` is measured against.
#include "core/local/LocalDiskAdapter.h"
#include "core/model/SizeFormatter.h"
#include "core/support/HeapTuning.h"

#include <cstdio>
#include <system_error>

int main(int argc, char** argv) {
    brimvale::adoptHugePageHeap(argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: local_scan_only FOLDER\n");
        return 2;
    }
    try {
        brimvale::LocalDiskAdapter adapter("local", "Local disk");
        const auto location = brimvale::LocalDiskAdapter::resolveScanLocation(argv[1]);
        auto root = adapter.scan(brimvale::ScanParameters{.path = location});
        std::printf("%s  %s\n", location.c_str(), brimvale::formatBytes(root->size()).c_str());
        // Like brimvale-cli, the tree is not freed node by node before exit.
        root->retain();
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "local_scan_only: %s\n", error.what());
        return 1;
    }
    return 0;
}
