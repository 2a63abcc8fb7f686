#include "core/rclone/RcloneStreamedScan.h"

#include "core/model/ScanCounter.h"
#include "core/model/ScanUIThrottle.h"
#include "core/rclone/BrimvaleError.h"
#include "core/rclone/RcloneListingErrors.h"
#include "core/rclone/RcloneListingStream.h"
#include "core/rclone/RcloneStreamMerge.h"
#include "core/rclone/RcloneTreeScan.h"
#include "core/rclone/Utf8Text.h"
#include "core/support/FatalError.h"
#include "core/support/MainQueue.h"
#include "core/support/SaturatingAdd.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/Task.h"

#include <algorithm>
#include <chrono>
#include <mutex>

namespace brimvale {
namespace {

// Entries are handed to the tree's owner in batches of at most this many, and at least this
// often while rclone is writing, so the live tree keeps up without a job per entry.
constexpr std::size_t kBatchEntries = 4096;
constexpr auto kBatchInterval = std::chrono::milliseconds(40);
// What one read of the child's output takes at most (ChildProcess reads 64 KiB at a time).
constexpr std::size_t kFullRead = 65536;
// The live tree is handed out at most this often (plus the cost of the last heavy hand-out).
constexpr double kLiveTreeIntervalSeconds = 1.0;

bool rcloneHasNoSuchRemote(std::string_view standardError) {
    return standardError.find("didn't find section in config file") != std::string_view::npos;
}

} // namespace

// What the scanning thread and the jobs it posts to the owner share.
struct RcloneStreamedScan::Shared {
    std::unique_ptr<RcloneStreamMerge> merge; // owner only
    ScanUIThrottle throttle;                  // owner only
    std::function<void(const FileNodeRef&)> partialStructure;
    std::stop_token stopToken;

    std::mutex mutex;                              // guards pending and applyPosted
    std::vector<std::vector<RcloneEntry>> pending; // decoded, not merged yet
    bool applyPosted = false;                      // a job to merge them is queued

    // Owner only.
    void applyPending() {
        std::vector<std::vector<RcloneEntry>> batches;
        {
            std::lock_guard lock(mutex);
            batches.swap(pending);
            applyPosted = false;
        }
        for (const auto& batch : batches) {
            merge->merge(batch);
        }
        if (!batches.empty()) {
            flush(false);
        }
    }

    // Owner only.
    void flush(bool always) {
        if (!always && !throttle.beginFlushIfDue()) {
            return;
        }
        merge->rebalanceChangedFolders();
        if (partialStructure) {
            partialStructure(merge->root());
        }
        if (!always) {
            throttle.finishFlush();
        }
    }
};

RcloneStreamedScan::RcloneStreamedScan(std::string remoteID, Listing listing,
                                       const ScanParameters& parameters)
    : remoteID_(std::move(remoteID))
    , listing_(std::move(listing))
    , parameters_(parameters)
    , shared_(std::make_shared<Shared>()) {
    shared_->throttle.minIntervalSeconds = kLiveTreeIntervalSeconds;
    shared_->partialStructure = parameters_.partialStructure;
    shared_->stopToken = parameters_.stopToken;
}

RcloneStreamedScan::~RcloneStreamedScan() = default;

template <class Work> void RcloneStreamedScan::onOwnerAndWait(Work&& work) const {
    if (parameters_.mainQueue != nullptr && !parameters_.mainQueue->isCurrent()) {
        runOnMainAndWait(*parameters_.mainQueue, parameters_.stopToken, std::forward<Work>(work));
    } else {
        work();
    }
}

void RcloneStreamedScan::handOff(std::vector<RcloneEntry>& batch) {
    if (batch.empty()) {
        return;
    }
    MainQueue* mainQueue = parameters_.mainQueue;
    if (mainQueue == nullptr || mainQueue->isCurrent()) {
        shared_->merge->merge(batch);
        shared_->flush(false);
        batch.clear();
        return;
    }
    std::lock_guard lock(shared_->mutex);
    shared_->pending.push_back(std::move(batch));
    batch.clear();
    if (!shared_->applyPosted) {
        shared_->applyPosted = true;
        mainQueue->post([shared = shared_] {
            if (!shared->stopToken.stop_requested()) {
                shared->applyPending();
            }
        });
    }
}

FileNodeRef RcloneStreamedScan::run() {
    FileNodeRef root = parameters_.seedRoot;
    if (!root || !root->isDirectory()) {
        root = FileNode::make({.name = RcloneTreeScan::rootName(parameters_.path, remoteID_),
                               .path = "/",
                               .isDirectory = true});
    }
    onOwnerAndWait([&] {
        shared_->merge = std::make_unique<RcloneStreamMerge>(root, parameters_.scanSession);
    });

    ScanCounter counter;
    RcloneListingStream stream(listing_.target);
    std::vector<RcloneEntry> batch;
    auto lastHandOff = std::chrono::steady_clock::now();
    const auto handOffCounted = [&] {
        std::int64_t files = 0;
        std::int64_t folders = 0;
        std::int64_t bytes = 0;
        for (const auto& entry : batch) {
            if (entry.isDir) {
                ++folders;
            } else {
                ++files;
                bytes = saturatingAdd(bytes, std::max<std::int64_t>(entry.rawSize, 0));
            }
        }
        std::string where;
        if (!batch.empty()) {
            where = RcloneTreeScan::childTarget(listing_.target, parentPathOfEntry(batch.back()));
        }
        handOff(batch);
        counter.addFiles(files, bytes);
        counter.addFolders(folders);
        if (parameters_.progress && !where.empty()) {
            parameters_.progress(counter.progress(Stage::listing(where)));
        }
        lastHandOff = std::chrono::steady_clock::now();
    };

    StreamedRcloneRun result;
    try {
        result = listing_.run(
            [&](std::string_view chunk) {
                stream.feed(chunk, batch);
                // A chunk smaller than a full read means rclone has nothing more to say for
                // now (it waits for its server): what came is shown at once.
                if (batch.size() >= kBatchEntries || chunk.size() < kFullRead ||
                    std::chrono::steady_clock::now() - lastHandOff >= kBatchInterval) {
                    handOffCounted();
                }
            },
            parameters_.stopToken);
        stream.finish(batch);
        handOffCounted();
    } catch (const CancellationError&) {
        ScanDiagnostics::log("lsjson cancelled remote=" + remoteID_ + " path=" + listing_.target);
        throw;
    }
    throwIfCancelled(parameters_.stopToken);

    std::vector<SkippedFolder> unreadable;
    if (result.exitStatus != 0) {
        unreadable = unreadableFoldersInListingLog(result.standardError);
        const bool topUnreadable =
            std::any_of(unreadable.begin(), unreadable.end(),
                        [](const SkippedFolder& folder) { return folder.location == "/"; });
        const std::string standardError = Utf8Text::decodeLossy(result.standardError);
        if (stream.entryCount() == 0 || unreadable.empty() || topUnreadable || !stream.complete()) {
            if (rcloneHasNoSuchRemote(standardError)) {
                throw BrimvaleError::remoteNotConfigured(listing_.remoteLabelForErrors);
            }
            throw BrimvaleError::scanFailed(listing_.remoteLabelForErrors,
                                            standardError.empty()
                                                ? "exit " + std::to_string(result.exitStatus)
                                                : standardError);
        }
    } else if (!stream.complete()) {
        throw BrimvaleError::parseError(
            "Could not parse folder listing for " + listing_.target +
            ": Invalid or incomplete JSON (often truncated output): the listing ended after " +
            std::to_string(stream.entryCount()) + " entries without its closing \"]\"");
    }
    ScanDiagnostics::log("lsjson -R parsed remote=" + remoteID_ + " path=" + listing_.target +
                         " entries=" + std::to_string(stream.entryCount()) +
                         " unreadable=" + std::to_string(unreadable.size()));

    if (parameters_.progress) {
        parameters_.progress(counter.progress(Stage::computing("Adding up sizes")));
    }
    onOwnerAndWait([&] {
        shared_->applyPending();
        shared_->merge->finish();
    });
    if (parameters_.onSkippedFolder) {
        for (const auto& folder : unreadable) {
            parameters_.onSkippedFolder(folder);
        }
    }
    if (parameters_.progress) {
        parameters_.progress(counter.progress(Stage::complete()));
    }
    return root;
}

} // namespace brimvale
