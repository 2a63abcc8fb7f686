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
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace brimvale {

// One scan of a local folder: a pool of workers lists folders (depth first, each folder once),
// the live tree is assembled on one owner thread, and the finished tree is pruned, rolled up
// and sorted. Cancellation: stop requests end every wait and stop running reads; no new folder
// is started, the workers are joined, and run() throws CancellationError.
// A read stuck in the kernel (a hung network or FUSE mount) answers no stop request: a worker
// still in its read a grace period after the read was stopped is given up on. Its folder is
// reported as not answering, a new worker takes its place, and the stuck thread, detached,
// touches nothing of the scan when the kernel lets it go (see WorkerGate).
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
    struct WorkerGate;
    struct WorkerThread {
        int slot = 0;
        std::shared_ptr<WorkerGate> gate;
        std::thread thread;
    };
    class ListingBuilder;

    FileNodeRef makeRoot(std::optional<Date> date);
    void startWorker(int slot);
    void workerLoop(Worker& worker);
    // Lists one folder; the subfolders to list go to `found`. False when the worker was given
    // up on during the read: it must then return without touching the scan.
    bool listFolder(DirectoryJob& job, Worker& worker, std::vector<DirectoryJob>& found);
    // Gives up on the worker of `slot` if it is still in a read; true if it was.
    bool abandonStuckWorker(int slot);
    // Joins every worker that ends within the grace period and gives up on the others.
    void joinOrAbandonWorkers();
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
    // Shared with the workers: a worker given up on may still use it after the scan is gone.
    std::shared_ptr<FolderReadWatchdog> watchdog_;
    int slotCount_ = 0; // the watchdog's slots: the first workers' and their replacements'
    int nextSlot_ = 0;  // the slot of the next worker started
    std::unique_ptr<LiveTreeAssembler> assembler_;

    std::mutex callbackLock_;              // one skipped-folder callback at a time
    std::mutex failureLock_;               // guards workerFailure_
    std::exception_ptr workerFailure_;     // the first error that escaped a worker
    std::atomic<bool> applyPosted_{false}; // an apply job waits on the main queue
    std::vector<WorkerThread> workers_;
};

} // namespace brimvale
