#include "tests/rclone/RcloneScanTestSupport.h"

#include "core/support/ManualMainQueue.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>

#include <future>
#include <mutex>

namespace brimvale::testing {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

void makeSampleTree(const fs::path& root) {
    writeFileOfSize(root / "top.txt", 10);
    writeFileOfSize(root / "a" / "g", 50);
    writeFileOfSize(root / "a" / "b" / "f1", 100);
    writeFileOfSize(root / "a" / "b" / "f2", 200);
    fs::create_directories(root / "c");
    writeFileOfSize(root / "sp ace & \xC3\xBC" / "x", 7);
}

std::string describe(const FileNode& node) {
    std::string text = std::string(node.name()) + ":" + std::to_string(node.size());
    if (node.isDirectory()) {
        text += "(";
        for (std::size_t i = 0; i < node.children().size(); ++i) {
            text += (i ? " " : "") + describe(*node.children()[i]);
        }
        text += ")";
    }
    return text;
}

void expectConsistent(const FileNode& node, std::int64_t session) {
    for (const auto& child : node.children()) {
        EXPECT_EQ(child->parent(), &node) << child->path();
        EXPECT_EQ(child->scanGeneration(), session) << child->path();
        const std::string base = node.path() == "/" ? "" : node.path();
        EXPECT_EQ(child->path(), base + "/" + std::string(child->name()));
        expectConsistent(*child, session);
    }
}

ScanOutcome scanServingMainQueue(RcloneAdapter& adapter, ScanParameters parameters,
                                 std::function<void(int batch)> beforeBatch) {
    ManualMainQueue mainQueue;
    ScanOutcome outcome;
    std::mutex mutex; // guards outcome.progress
    parameters.mainQueue = &mainQueue;
    parameters.progress = [&](const ScanProgress& progress) {
        std::lock_guard lock(mutex);
        outcome.progress.push_back(progress);
    };
    parameters.partialStructure = [&, callersOwn =
                                          parameters.partialStructure](const FileNodeRef& root) {
        ++outcome.partialTrees;
        outcome.partialTreesOnMainThread =
            outcome.partialTreesOnMainThread && mainQueue.isCurrent();
        if (callersOwn) {
            callersOwn(root);
        }
    };
    auto scan = std::async(std::launch::async, [&] { return adapter.scan(parameters); });
    int batch = 0;
    const bool finished = waitUntil([&] {
        if (mainQueue.pendingCount() > 0) {
            if (beforeBatch) {
                beforeBatch(batch++);
            }
            mainQueue.runPending();
        }
        return scan.wait_for(0s) == std::future_status::ready;
    });
    EXPECT_TRUE(finished);
    try {
        outcome.root = scan.get();
    } catch (...) {
        outcome.failure = std::current_exception();
    }
    return outcome;
}

} // namespace brimvale::testing
