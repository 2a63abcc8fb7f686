#pragma once

#include "core/model/CloudStorageProvider.h"
#include "core/rclone/RcloneAdapter.h"

#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace brimvale::testing {

// The tree every scan test lists: nested folders, an empty one, odd names.
//   top.txt 10 | a/ { g 50, b/ { f1 100, f2 200 } } | c/ {} | "sp ace & ü"/ { x 7 }
void makeSampleTree(const std::filesystem::path& root);

// The sample tree as describe() shows it, its root named "tree".
inline constexpr const char* kSampleTree =
    "tree:367(a:350(b:300(f2:200 f1:100) g:50) top.txt:10 sp ace & \xC3\xBC:7(x:7) c:0())";

// name:size(children…) for a whole tree, children in their order.
std::string describe(const FileNode& node);

// Every node's parent link, path and scan mark are what the tree says.
void expectConsistent(const FileNode& node, std::int64_t session);

struct ScanOutcome {
    FileNodeRef root;
    std::exception_ptr failure;
    std::vector<ScanProgress> progress;
    int partialTrees = 0;
    bool partialTreesOnMainThread = true;
};

// Runs a scan on its own thread while this (main) thread serves the main queue.
// `beforeBatch(n)` runs on the main thread before the n-th batch of queued jobs: batch 0 is
// the scan's start, batch 1 the merge of the top listing, and so on. A partialStructure of
// the caller's own is called too.
ScanOutcome scanServingMainQueue(RcloneAdapter& adapter, ScanParameters parameters,
                                 std::function<void(int batch)> beforeBatch = {});

} // namespace brimvale::testing
