#pragma once

#include "core/model/CloudStorageProvider.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace brimvale::testing {

// A provider whose scans do exactly what the test tells them, step by step, so that every
// interleaving of a scan with the main thread is the test's choice. Partial trees are handed
// over on the main queue, as the real adapters do.
class ScriptedProvider final : public CloudStorageProvider {
public:
    struct Progress {
        ScanProgress progress;
    };
    struct PartialTree {
        FileNodeRef root;
    };
    struct Finish {
        FileNodeRef root;
    };
    struct Fail {
        std::exception_ptr error;
    };
    using Step = std::variant<Progress, PartialTree, Finish, Fail>;

    ScriptedProvider(std::string remoteID, std::string type)
        : remoteID_(std::move(remoteID))
        , type_(std::move(type)) {}

    std::string remoteID() const override { return remoteID_; }
    std::string displayName() const override { return "Scripted " + remoteID_; }
    std::string rcloneType() const override { return type_; }

    bool isConfigured(std::stop_token) override;
    std::vector<FileNodeRef> listDirectory(const std::string&, std::stop_token) override {
        return {};
    }
    // Plays the steps pushed with push() until Finish or Fail; a cancelled scan throws
    // CancellationError at its next step.
    FileNodeRef scan(const ScanParameters& parameters) override;
    std::optional<std::string> webURL(const FileNode&) const override { return std::nullopt; }
    std::optional<std::int64_t> totalOccupiedBytesForScanPath(const std::string&,
                                                              std::stop_token) override {
        return occupiedBytes;
    }

    // Queues a step for the newest scan; pushTo for an earlier one (a superseded scan that has
    // not noticed its stop yet).
    void push(Step step);
    void pushTo(int scanIndex, Step step);
    int scansStarted() const;
    // The path and seed of each scan, in order.
    std::vector<std::string> scannedPaths() const;
    std::vector<FileNodeRef> seeds() const;
    // Scans still running whose stop was not asked for: one at most while the coordinator keeps
    // its runs apart.
    int runningUnstopped() const;
    // Waits until `count` scans have started.
    bool waitForScans(int count, std::chrono::milliseconds timeout = std::chrono::seconds(10));
    // Waits until every pushed step has been played.
    // (Steps queued for a scan that ended unplayed do not count.)
    bool waitUntilDrained(std::chrono::milliseconds timeout = std::chrono::seconds(10));

    bool configured = true;
    // A scan that goes on after its stop until its steps say otherwise: a result already on its
    // way when the run was superseded.
    std::atomic<bool> ignoresStop{false};
    std::optional<std::int64_t> occupiedBytes;

private:
    const std::string remoteID_;
    const std::string type_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<int, std::deque<Step>> steps_; // by scan index
    int pendingSteps_ = 0;
    std::vector<std::string> paths_;
    std::vector<FileNodeRef> seeds_;
    std::map<int, std::stop_token> running_; // by scan index
    bool playing_ = false;
};

} // namespace brimvale::testing
