#pragma once

#include "core/coordinator/ItemDeletionState.h"
#include "core/coordinator/ScannerState.h"
#include "core/model/FileNode.h"
#include "core/model/ScanProgress.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace brimvale {

// Everything the coordinator keeps about one account: what its pane shows, the generation of
// its current run, the background load of that run, the live tree and progress of a scan, the
// throttle times of its live updates and checkpoints, the saved-scan stem it uses, its folder
// refreshes and the choices made for it this session. One record per account, so a run that is
// started, superseded, stopped or removed changes all of it in one step.
// Thread safety: the main thread only; background work names a run by its generation.
class AccountRun {
public:
    using Clock = std::chrono::steady_clock;

    // The background load of the current run: its task and the generation it started with.
    struct Load {
        std::uint64_t taskID = 0;
        std::int64_t generation = 0;
    };

    const ScannerState& pane() const { return pane_; }
    void setPane(ScannerState state) { pane_ = std::move(state); }
    std::int64_t generation() const { return generation_; }
    const std::optional<Load>& load() const { return load_; }
    bool isLoading() const { return load_.has_value(); }

    // A new run takes over: `generation` (never used before by any account) becomes current,
    // so nothing the previous run still posts is applied. Its live progress and tree go; a
    // load still running stays recorded until stop() or a new start().
    void supersede(std::int64_t generation);
    // The load of the current run started as task `taskID`, saving under `cacheStem`.
    void start(std::uint64_t taskID, std::string cacheStem);
    // Forgets the running load and the live buffers, and supersedes the run with `generation`.
    // Returns the load's task, for the caller to cancel (not join: it may wait for this thread).
    std::optional<std::uint64_t> stop(std::int64_t generation);
    // The load of `generation` ended: forgotten when it is still the recorded one (true).
    bool loadEnded(std::int64_t generation);

    // The live state of a running scan.
    const std::optional<ScanProgress>& progress() const { return progress_; }
    void setProgress(const ScanProgress& progress) { progress_ = progress; }
    const FileNodeRef& liveRoot() const { return liveRoot_; }
    void setLiveRoot(FileNodeRef root) { liveRoot_ = std::move(root); }
    void dropLiveBuffers();
    // True, and the time noted, when `interval` has passed since the last live update of the
    // pane (or the last checkpoint); the first of a run always is.
    bool takeLiveTurn(Clock::time_point now, Clock::duration interval);
    bool takeCheckpointTurn(Clock::time_point now, Clock::duration interval);

    // The saved-scan stem of the last load.
    const std::optional<std::string>& cacheStem() const { return cacheStem_; }

    // The folders being refreshed now, and why the last refresh failed.
    std::set<std::string> foldersRefreshing;
    std::optional<std::string> folderRefreshError;
    // Items of the finished tree being deleted, or the last deletion's report.
    ItemDeletionState deletion;
    // The local folder chosen for the account (remembered in the settings too).
    std::optional<std::string> localScanPath;
    // The listing mode chosen for this session (brimvale-cli scan --per-folder).
    std::optional<bool> listingModeOverride;

private:
    static bool takeTurn(std::optional<Clock::time_point>& last, Clock::time_point now,
                         Clock::duration interval);

    ScannerState pane_;
    std::int64_t generation_ = 0;
    std::optional<Load> load_;
    std::optional<ScanProgress> progress_;
    FileNodeRef liveRoot_;
    std::optional<Clock::time_point> lastLiveEmit_;
    std::optional<Clock::time_point> lastCheckpoint_;
    std::optional<std::string> cacheStem_;
};

} // namespace brimvale
