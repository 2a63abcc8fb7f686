// Scans a folder with LocalDiskAdapter and prints what a test needs to check, one fact per
// line. Tests run it as an unprivileged user (setpriv) to meet real permission errors.
//   local_scan_probe PATH [--quiet PREFIX]...
// prints "root-size N", "permission-prompts N", then "skipped QUIET LOCATION\tREASON" lines
// and "node PATH\tSIZE" for every node.
#include "core/local/LocalDiskAdapter.h"

#include <cstdio>
#include <string>
#include <vector>

using namespace brimvale;

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: local_scan_probe PATH [--quiet PREFIX]...\n");
        return 2;
    }
    LocalScanOptions options;
    int prompts = 0;
    std::vector<SkippedFolder> skipped;
    for (int i = 2; i + 1 < argc; i += 2) {
        if (std::string(argv[i]) == "--quiet") {
            options.quietPrefixes.emplace_back(argv[i + 1]);
        }
    }
    options.onPermissionError = [&] {
        ++prompts;
    };
    options.onSkippedFolder = [&](const SkippedFolder& folder) {
        skipped.push_back(folder);
    };
    LocalDiskAdapter adapter("local", "Local disk", options);
    FileNodeRef root;
    try {
        root = adapter.scan(ScanParameters{.path = argv[1]});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "scan failed: %s\n", error.what());
        return 1;
    }
    std::printf("root-size %lld\n", static_cast<long long>(root->size()));
    std::printf("permission-prompts %d\n", prompts);
    for (const auto& folder : skipped) {
        std::printf("skipped %d %s\t%s\n", folder.quiet ? 1 : 0, folder.location.c_str(),
                    folder.reason.c_str());
    }
    std::vector<const FileNode*> stack{root.get()};
    while (!stack.empty()) {
        const FileNode* node = stack.back();
        stack.pop_back();
        std::printf("node %s\t%lld\n", node->path().c_str(), static_cast<long long>(node->size()));
        for (const auto& child : node->children()) {
            stack.push_back(child.get());
        }
    }
    return 0;
}
