#pragma once

#include "core/local/DirEntry.h"
#include "core/model/FileNode.h"
#include "core/model/SharedText.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace brimvale {

// One folder waiting to be listed.
struct DirectoryJob {
    // The folder's node; the listing replaces its children.
    FileNodeRef folder;
    // An earlier node of the same folder whose children may be reused (a rescan), or null.
    FileNodeRef seed;
    // The folder's logical path, shared with its children's nodes.
    SharedTextRef path;
    // Known from the parent's listing; the root's is found when it is opened.
    FileIdentity identity;
    // The parent's node, only compared (never used): a worker that still has the parent open
    // opens this folder relative to it.
    const FileNode* parent = nullptr;
    // A mount point may start here (the root, or a device change).
    bool checkFileSystem = false;
    bool isRoot = false;
};

// The folders waiting to be listed, shared by a fixed pool of workers: last in, first out, so
// a scan goes depth first and keeps few folders waiting. A scan is done when no job is queued
// or running. Thread safety: every operation may be called from any thread.
class DirectoryJobQueue {
public:
    void push(DirectoryJob job);
    // For a worker: queues the subfolders `found` in the folder it just finished (when
    // `finishedOne`), counts that folder done and takes the next job, waiting while others may
    // still queue some. Empty when the scan is done or stopped. `found` is left empty.
    std::optional<DirectoryJob> finishAndTakeNext(std::vector<DirectoryJob>& found,
                                                  bool finishedOne);
    // Counts a job done that its worker will never finish (its read is stuck in the kernel and
    // the worker was given up on).
    void finishAbandonedJob();
    // Ends the waits of every worker and of waitUntilDone; queued jobs are dropped.
    void stop();
    // True once every job is done; false at `deadline` or after stop().
    bool waitUntilDone(std::chrono::steady_clock::time_point deadline);

private:
    std::mutex lock_;                      // guards every field below
    std::condition_variable jobAvailable_; // a job was queued, or the scan ended
    std::condition_variable scanEnded_;    // every job is done, or stop() was called
    std::vector<DirectoryJob> jobs_;       // queued jobs, the newest last
    std::int64_t unfinishedJobs_ = 0;      // jobs queued or being worked on
    int idleWorkers_ = 0;                  // workers waiting for a job
    bool stopped_ = false;
};

} // namespace brimvale
