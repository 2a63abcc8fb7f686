#pragma once

#include "core/local/ConcurrentCanonicalPathSet.h"
#include "core/local/DirectoryJobQueue.h"
#include "core/local/FolderReadWatchdog.h"
#include "core/local/HardLinkRegistry.h"
#include "core/local/LiveTreeAssembler.h"
#include "core/local/LocalScanOptions.h"
#include "core/model/CloudStorageProvider.h"
#include "core/model/ScanCounter.h"
#include "core/model/ScanUIThrottle.h"

#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace brimvale {

// One scan of a local folder: a fixed pool of workers lists folders (depth first, each folder
// once), the live tree is assembled on one owner thread, and the finished tree is pruned,
// rolled up and sorted. Cancellation: stop requests end every wait and stop running reads; no
// new folder is started, the workers are joined, and run() throws CancellationError.
// Thread safety: run() once, from the thread that owns the scan; the rest is internal.
class LocalScanRun : public std::enable_shared_from_this<LocalScanRun> {
public:
    // `rootLocation` is an absolute, resolved folder path.
    LocalScanRun(std::string rootLocation, const ScanParameters& parameters,
                 const LocalScanOptions& options);
    ~LocalScanRun();

    FileNodeRef run();

private:
    struct Worker;
    class ListingBuilder;

    FileNodeRef makeRoot();
    void workerLoop(int slot);
    // Lists one folder; the subfolders to list go to `found`.
    void listFolder(DirectoryJob& job, Worker& worker, std::vector<DirectoryJob>& found);
    void reportSkippedFolder(const DirectoryJob& job, std::string reason, bool timedOut);
    void onOwner(const std::function<void()>& work, bool wait);
    void applyAndFlush();
    void finishTree();
    ScanProgress currentProgress() const;

    const std::string rootLocation_;
    const ScanParameters parameters_;
    const LocalScanOptions options_;
    std::shared_ptr<DirectoryReader> reader_;
    const int workerCount_;

    FileNodeRef root_;
    bool seeded_ = false;             // the root is the seed's root: a rescan
    std::int64_t generationMark_ = 0; // written into new nodes: the session, in a rescan only
    ScanCounter counter_;
    ScanUIThrottle throttle_;
    ConcurrentCanonicalPathSet visitedFolders_;
    HardLinkRegistry hardLinks_;
    DirectoryJobQueue queue_;
    FolderReadWatchdog watchdog_;
    std::unique_ptr<LiveTreeAssembler> assembler_;

    std::mutex callbackLock_;              // one skipped-folder callback at a time
    std::mutex failureLock_;               // guards workerFailure_
    std::exception_ptr workerFailure_;     // the first error that escaped a worker
    std::atomic<bool> applyPosted_{false}; // an apply job waits on the main queue
    std::vector<std::jthread> workers_;
};

} // namespace brimvale
