#include "core/local/LocalScanRun.h"

#include "core/local/PosixDirectoryReader.h"
#include "core/local/QuietPrefixes.h"
#include "core/model/FolderShares.h"
#include "core/model/SizeFormatter.h"
#include "core/support/MainQueue.h"
#include "core/support/SaturatingAdd.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/Task.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <optional>
#include <pthread.h>
#include <sys/stat.h>
#include <system_error>
#include <unordered_map>

namespace brimvale {
namespace {

// How often the scan's own thread applies listings, reports progress and checks time limits.
constexpr auto kOwnerTick = std::chrono::milliseconds(50);
// How long a read that was told to stop may take to notice before its worker is given up on.
constexpr auto kStuckReadGrace = std::chrono::milliseconds(1000);
// Workers that may replace workers given up on, over the whole scan.
constexpr int kReplacementWorkers = 16;

std::string logicalPathText(std::string_view logicalPath) {
    return logicalPath.empty() ? std::string("/") : std::string(logicalPath);
}

std::string timeLimitText(std::chrono::milliseconds limit) {
    return formatDecimalHalfEven(static_cast<double>(limit.count()) / 1000.0, 3) + "s";
}

std::string errorDescription(int errorNumber) {
    return std::error_code(errorNumber, std::generic_category()).message();
}

// glibc gives each worker thread a malloc arena of its own and grows it one page per call, an
// mprotect system call each time: a scan of half a million files made 23,000 of them.
// Growing the arena once up front (the memory is handed back at once, its address range stays
// usable) spares the workers nearly all of those calls.
void growThreadArenaUpFront() {
#if defined(__GLIBC__)
    constexpr std::size_t kBlockBytes = 60 * 1024; // below the mmap threshold: arena memory
    std::array<void*, 512> blocks{};
    for (auto& block : blocks) {
        block = std::malloc(kBlockBytes);
    }
    for (void* block : blocks) {
        std::free(block);
    }
#endif
}

} // namespace

// What a worker and the scan share. Once `abandoned` is set (under `lock`), the worker uses
// only what it holds itself (this gate, the reader, the watchdog, its own job): the scan may be
// gone by the time its read returns.
struct LocalScanRun::WorkerGate {
    std::mutex lock;
    std::condition_variable ended;
    bool abandoned = false;
    bool finished = false;
    std::optional<DirectoryJob> reading; // the folder being read, while a read runs

    bool isAbandoned() {
        std::lock_guard guard(lock);
        return abandoned;
    }
    void finish() {
        {
            std::lock_guard guard(lock);
            finished = true;
        }
        ended.notify_all();
    }
};

struct LocalScanRun::Worker {
    int slot = 0;
    std::shared_ptr<WorkerGate> gate;
    std::shared_ptr<DirectoryReader> reader;
    std::shared_ptr<FolderReadWatchdog> watchdog;
    // The folder this worker listed last, kept open so that its subfolders open relative to it.
    FolderDescriptor openFolder;
    const FileNode* openFolderNode = nullptr;
    std::string location; // buffer for the current folder's absolute location
    std::unordered_map<std::string_view, FileNode*> seedChildren; // by name, for a rescan
};

// Turns the entries of one folder into nodes and subfolder jobs.
class LocalScanRun::ListingBuilder final : public DirEntrySink {
public:
    ListingBuilder(LocalScanRun& run, DirectoryJob& job, Worker& worker,
                   std::vector<DirectoryJob>& found)
        : run_(run)
        , job_(job)
        , worker_(worker)
        , found_(found)
        , generationMark_(run.generationMark_) {
        listing.folder = job.folder;
        worker_.seedChildren.clear();
        if (job.seed) {
            for (const auto& child : job.seed->children()) {
                worker_.seedChildren.emplace(child->name(), child.get());
            }
        }
    }

    // The folder's own device: a subfolder on another one may be a mount point.
    std::uint64_t folderDevice = 0;
    FolderListing listing;
    std::int64_t fileCount = 0;
    std::int64_t byteCount = 0;

    void addEntry(const DirEntry& entry) override {
        if (++entriesSinceProgressNote_ == 64) {
            entriesSinceProgressNote_ = 0;
            worker_.watchdog->noteProgress(worker_.slot);
        }
        if (entry.name == ".DS_Store" || entry.name == "Thumbs.db") {
            return;
        }
        const std::optional<Date> date = Date::fromUnixSeconds(entry.modifiedUnixSeconds);
        FileNode* seed = nullptr;
        if (!worker_.seedChildren.empty()) {
            const auto match = worker_.seedChildren.find(entry.name);
            if (match != worker_.seedChildren.end() &&
                match->second->isDirectory() == entry.isDirectory) {
                seed = match->second;
            }
        }
        const bool reuseSeed = seed != nullptr && seed->modifiedDate() == date;
        FileNodeRef node;
        if (reuseSeed) {
            node = FileNodeRef(seed);
        } else {
            node = FileNode::makeChild(job_.path, PathJoin::relativeTail,
                                       FileNodeFields{.name = std::string(entry.name),
                                                      .isDirectory = entry.isDirectory,
                                                      .size = entry.allocatedSize,
                                                      .modifiedDate = date});
            node->setParent(job_.folder.get());
            node->setScanGeneration(generationMark_);
        }
        if (entry.isDirectory) {
            if (reuseSeed) {
                listing.reused.push_back({node, std::nullopt});
            } else if (seed != nullptr) {
                // Shows the earlier size until the folder is listed again.
                node->setSize(seed->size());
            }
            listing.childrenTotal = saturatingAdd(listing.childrenTotal, node->size());
            addSubfolder(entry, node, seed);
        } else {
            std::optional<std::size_t> reusedIndex;
            if (reuseSeed) {
                reusedIndex = listing.reused.size();
                listing.reused.push_back({node, entry.allocatedSize});
            }
            if (entry.linkCount > 1) {
                linkedFiles_.push_back(
                    {listing.children.size(), reusedIndex, entry.identity, entry.allocatedSize});
            }
            ++fileCount;
            byteCount = saturatingAdd(byteCount, entry.allocatedSize);
            listing.childrenTotal = saturatingAdd(listing.childrenTotal, entry.allocatedSize);
        }
        listing.children.push_back(std::move(node));
    }

    // After a complete read: each file with several names counts once in the whole scan.
    void countLinkedFilesOnce() {
        for (const auto& linked : linkedFiles_) {
            const FileNodeRef& node = listing.children[linked.childIndex];
            if (!run_.hardLinks_.claim(linked.identity)) {
                byteCount -= linked.allocatedSize;
                listing.childrenTotal -= linked.allocatedSize;
                if (linked.reusedIndex) {
                    listing.reused[*linked.reusedIndex].newSize = 0;
                } else {
                    node->setSize(0);
                }
            }
            run_.hardLinks_.record(linked.identity, node, linked.allocatedSize);
        }
    }

private:
    struct LinkedFile {
        std::size_t childIndex;
        std::optional<std::size_t> reusedIndex;
        FileIdentity identity;
        std::int64_t allocatedSize;
    };

    void addSubfolder(const DirEntry& entry, const FileNodeRef& node, FileNode* seed) {
        const std::string_view parentPath = job_.path->view();
        childPath_.clear();
        if (!parentPath.empty()) {
            childPath_.append(parentPath).push_back('/');
        }
        childPath_.append(entry.name);
        found_.push_back(DirectoryJob{.folder = node,
                                      .seed = FileNodeRef(seed),
                                      .path = SharedText::make(childPath_),
                                      .identity = entry.identity,
                                      .parent = job_.folder.get(),
                                      .checkFileSystem = entry.identity.device != folderDevice});
    }

    LocalScanRun& run_;
    DirectoryJob& job_;
    Worker& worker_;
    std::vector<DirectoryJob>& found_;
    const std::int64_t generationMark_;
    int entriesSinceProgressNote_ = 0;
    std::string childPath_;
    std::vector<LinkedFile> linkedFiles_;
};

LocalScanRun::LocalScanRun(std::string rootLocation, const ScanParameters& parameters,
                           const LocalScanOptions& options)
    : rootLocation_(std::move(rootLocation))
    , parameters_(parameters)
    , options_(options)
    , reader_(options.directoryReader ? options.directoryReader
                                      : std::make_shared<PosixDirectoryReader>())
    , workerCount_(std::max(1, options.workerCount))
    , watchdog_(std::make_shared<FolderReadWatchdog>(workerCount_ + kReplacementWorkers,
                                                     options.folderTimeLimit))
    , slotCount_(workerCount_ + kReplacementWorkers) {}

LocalScanRun::~LocalScanRun() {
    queue_.stop();
    watchdog_->stopAll();
    joinOrAbandonWorkers();
}

FileNodeRef LocalScanRun::makeRoot(std::optional<Date> date) {
    const std::string logical = rootLocation_.substr(1);
    const auto slash = logical.rfind('/');
    const std::string name = logical.empty()
                                 ? std::string("/")
                                 : logical.substr(slash == std::string::npos ? 0 : slash + 1);
    const FileNodeRef& seed = parameters_.seedRoot;
    if (seed && seed->isDirectory() && seed->path() == logical) {
        return seed;
    }
    return FileNode::make(
        {.name = name, .path = logical, .isDirectory = true, .modifiedDate = date});
}

void LocalScanRun::onOwner(const std::function<void()>& work, bool wait) {
    MainQueue* mainQueue = parameters_.mainQueue;
    if (mainQueue == nullptr || mainQueue->isCurrent()) {
        work();
    } else if (wait) {
        runOnMainAndWait(*mainQueue, parameters_.stopToken, work);
    } else {
        mainQueue->post([self = shared_from_this(), work] {
            if (!self->parameters_.stopToken.stop_requested()) {
                work();
            }
        });
    }
}

void LocalScanRun::applyAndFlush() {
    if (parameters_.mainQueue == nullptr) {
        assembler_->applyPending();
        assembler_->flushIfDue();
        return;
    }
    if (applyPosted_.exchange(true)) {
        return;
    }
    onOwner(
        [this] {
            applyPosted_.store(false);
            assembler_->applyPending();
            assembler_->flushIfDue();
        },
        false);
}

ScanProgress LocalScanRun::currentProgress() const {
    return counter_.progress(Stage::listing("Scanning " + rootLocation_));
}

FileNodeRef LocalScanRun::run() {
    // Asked here, not on the owner thread (the application's main thread): the stat of a hung
    // mount does not return.
    std::optional<Date> rootDate;
    struct stat status {};
    if (::stat(rootLocation_.c_str(), &status) == 0) {
        rootDate = Date::fromUnixSeconds(static_cast<double>(status.st_mtim.tv_sec) +
                                         static_cast<double>(status.st_mtim.tv_nsec) * 1e-9);
    }
    throwIfCancelled(parameters_.stopToken);
    onOwner(
        [this, rootDate] {
            root_ = makeRoot(rootDate);
            seeded_ = root_ == parameters_.seedRoot;
            generationMark_ = seeded_ ? parameters_.scanSession : 0;
            root_->setParent(nullptr);
            root_->relinkDescendantParentPointers();
            root_->setScanGeneration(generationMark_);
        },
        true);
    assembler_ = std::make_unique<LiveTreeAssembler>(
        LiveTreeAssembler::Settings{.root = root_,
                                    .scanSession = parameters_.scanSession,
                                    .partialStructure = parameters_.partialStructure,
                                    .throttle = &throttle_});
    queue_.push(DirectoryJob{.folder = root_,
                             .seed = seeded_ ? root_ : FileNodeRef(),
                             .path = SharedText::make(std::string_view(rootLocation_).substr(1)),
                             .checkFileSystem = true,
                             .isRoot = true});
    std::stop_callback onStop(parameters_.stopToken, [this] {
        queue_.stop();
        watchdog_->stopAll();
    });
    while (nextSlot_ < workerCount_) {
        startWorker(nextSlot_++);
    }

    std::int64_t reportedFolders = -1;
    for (;;) {
        const auto now = FolderReadWatchdog::Clock::now();
        auto wakeAt = now + kOwnerTick;
        if (const auto overdueAt = watchdog_->stopOverdueReads(now)) {
            wakeAt = std::min(wakeAt, *overdueAt);
        }
        for (const int slot : watchdog_->readsStuckAfterStop(now, kStuckReadGrace)) {
            if (abandonStuckWorker(slot) && nextSlot_ < slotCount_) {
                startWorker(nextSlot_++);
            }
        }
        if (queue_.waitUntilDone(wakeAt) || parameters_.stopToken.stop_requested()) {
            break;
        }
        {
            std::lock_guard guard(failureLock_);
            if (workerFailure_) {
                break;
            }
        }
        applyAndFlush();
        if (parameters_.progress && counter_.folderCount() != reportedFolders) {
            reportedFolders = counter_.folderCount();
            parameters_.progress(currentProgress());
        }
    }
    joinOrAbandonWorkers();
    if (workerFailure_) {
        std::rethrow_exception(workerFailure_);
    }
    throwIfCancelled(parameters_.stopToken);
    // A scan shorter than one tick still hands out its partial tree once.
    applyAndFlush();

    if (parameters_.progress) {
        parameters_.progress(counter_.progress(Stage::computing("Adding up sizes")));
    }
    onOwner([this] { finishTree(); }, true);
    if (parameters_.progress) {
        parameters_.progress(counter_.progress(Stage::complete()));
    }
    return root_;
}

void LocalScanRun::finishTree() {
    assembler_->applyPending();
    const bool linksMoved = hardLinks_.assignOwnersByPath();
    if (seeded_) {
        root_->setParent(nullptr);
        root_->relinkDescendantParentPointers();
        root_->pruneStaleNodes(parameters_.scanSession);
        root_->propagateSizes();
        root_->clearScanMarks();
        root_->sortChildren();
        return;
    }
    // A fresh tree has its parent links, no marks and nothing stale, and its folder sizes are
    // the sums already unless hard-linked sizes moved: one pass for fractions and order.
    if (linksMoved) {
        root_->propagateSizes();
        root_->sortChildren();
        return;
    }
    rebalanceAndSortEveryFolder(*root_);
}

void LocalScanRun::startWorker(int slot) {
    auto gate = std::make_shared<WorkerGate>();
    std::thread thread([this, slot, gate, reader = reader_, watchdog = watchdog_] {
        pthread_setname_np(pthread_self(), "brimvale-scan");
        Worker worker;
        worker.slot = slot;
        worker.gate = gate;
        worker.reader = reader;
        worker.watchdog = watchdog;
        workerLoop(worker);
        gate->finish();
    });
    workers_.push_back(
        WorkerThread{.slot = slot, .gate = std::move(gate), .thread = std::move(thread)});
}

bool LocalScanRun::abandonStuckWorker(int slot) {
    const auto found =
        std::find_if(workers_.begin(), workers_.end(),
                     [slot](const WorkerThread& worker) { return worker.slot == slot; });
    if (found == workers_.end()) {
        return false;
    }
    std::optional<DirectoryJob> job;
    {
        std::lock_guard guard(found->gate->lock);
        if (found->gate->finished || !found->gate->reading) {
            return false;
        }
        found->gate->abandoned = true;
        job = std::move(found->gate->reading);
        found->gate->reading.reset();
    }
    found->thread.detach();
    workers_.erase(found);
    if (!parameters_.stopToken.stop_requested()) {
        ScanDiagnostics::log("stuck " + logicalPathText(job->path->view()) +
                             ": the read does not return; going on without it");
        reportSkippedFolder(*job, "no answer for " + timeLimitText(options_.folderTimeLimit), true);
        assembler_->submit(FolderListing{.folder = job->folder});
    }
    queue_.finishAbandonedJob();
    return true;
}

void LocalScanRun::joinOrAbandonWorkers() {
    const auto deadline = std::chrono::steady_clock::now() + kStuckReadGrace;
    while (!workers_.empty()) {
        WorkerThread& worker = workers_.back();
        bool ended = false;
        {
            std::unique_lock guard(worker.gate->lock);
            ended = worker.gate->ended.wait_until(guard, deadline,
                                                  [&] { return worker.gate->finished; });
        }
        if (ended || !abandonStuckWorker(worker.slot)) {
            if (worker.thread.joinable()) {
                worker.thread.join();
            }
            workers_.pop_back();
        }
    }
}

void LocalScanRun::workerLoop(Worker& worker) {
    growThreadArenaUpFront();
    std::vector<DirectoryJob> found;
    bool finishedOne = false;
    try {
        while (auto job = queue_.finishAndTakeNext(found, finishedOne)) {
            finishedOne = true;
            if (!listFolder(*job, worker, found)) {
                return;
            }
        }
    } catch (...) {
        if (worker.gate->isAbandoned()) {
            return;
        }
        {
            std::lock_guard guard(failureLock_);
            if (!workerFailure_) {
                workerFailure_ = std::current_exception();
            }
        }
        queue_.stop();
        watchdog_->stopAll();
    }
}

bool LocalScanRun::listFolder(DirectoryJob& job, Worker& worker, std::vector<DirectoryJob>& found) {
    if (parameters_.stopToken.stop_requested()) {
        return true;
    }
    counter_.addFolders(1);
    if (!job.isRoot && !visitedFolders_.tryInsert(job.identity)) {
        // Listed already under another path (a bind mount); listed once, counted once.
        assembler_->submit(FolderListing{.folder = job.folder});
        return true;
    }
    worker.location.assign(1, '/');
    worker.location.append(job.path->view());
    FolderReadRequest request{
        .location = worker.location, .checkFileSystem = job.checkFileSystem, .keepOpen = true};
    if (worker.openFolder.valid() && worker.openFolderNode == job.parent) {
        request.parentDescriptor = worker.openFolder.get();
        request.name = job.folder->name();
    }
    ListingBuilder builder(*this, job, worker, found);
    builder.folderDevice = job.identity.device;
    if (job.isRoot) {
        struct stat status {};
        if (::stat(rootLocation_.c_str(), &status) == 0) {
            builder.folderDevice = static_cast<std::uint64_t>(status.st_dev);
        }
    }
    {
        std::lock_guard guard(worker.gate->lock);
        worker.gate->reading = job;
    }
    request.stopToken = worker.watchdog->beginRead(worker.slot);
    FolderReadOutcome outcome = worker.reader->read(request, builder);
    {
        std::lock_guard guard(worker.gate->lock);
        if (worker.gate->abandoned) {
            return false;
        }
        worker.gate->reading.reset();
    }
    const bool timedOut = worker.watchdog->endRead(worker.slot);
    worker.openFolderNode = outcome.descriptor.valid() ? job.folder.get() : nullptr;
    worker.openFolder = std::move(outcome.descriptor);

    if (outcome.status != FolderReadStatus::complete) {
        found.clear();
    }
    switch (outcome.status) {
    case FolderReadStatus::complete:
        if (job.isRoot) {
            visitedFolders_.tryInsert(outcome.identity);
        }
        builder.countLinkedFilesOnce();
        counter_.addFiles(builder.fileCount, builder.byteCount);
        assembler_->submit(std::move(builder.listing));
        return true;
    case FolderReadStatus::pseudoFileSystem:
        ScanDiagnostics::log("skip " + logicalPathText(job.path->view()) +
                             ": kernel file system, not listed");
        assembler_->submit(FolderListing{.folder = job.folder});
        return true;
    case FolderReadStatus::stopped:
        if (!timedOut || parameters_.stopToken.stop_requested()) {
            return true;
        }
        ScanDiagnostics::log("timeout " + logicalPathText(job.path->view()) +
                             ": readEntries took >" + timeLimitText(options_.folderTimeLimit) +
                             ", skipping");
        reportSkippedFolder(job, "no answer for " + timeLimitText(options_.folderTimeLimit), true);
        assembler_->submit(FolderListing{.folder = job.folder});
        return true;
    case FolderReadStatus::failed: {
        const std::string description = errorDescription(outcome.errorNumber);
        ScanDiagnostics::log("skip " + logicalPathText(job.path->view()) + ": " + description);
        reportSkippedFolder(job, description, false);
        assembler_->submit(FolderListing{.folder = job.folder});
        return true;
    }
    }
    return true;
}

void LocalScanRun::reportSkippedFolder(const DirectoryJob& job, std::string reason, bool timedOut) {
    const bool quiet = QuietPrefixes::contains(options_.quietPrefixes, job.path->view());
    std::lock_guard guard(callbackLock_);
    if (options_.onSkippedFolder || parameters_.onSkippedFolder) {
        std::string location = "/";
        location.append(job.path->view());
        const SkippedFolder folder{.location = std::move(location),
                                   .reason = std::move(reason),
                                   .timedOut = timedOut,
                                   .quiet = quiet};
        if (options_.onSkippedFolder) {
            options_.onSkippedFolder(folder);
        }
        if (parameters_.onSkippedFolder) {
            parameters_.onSkippedFolder(folder);
        }
    }
    if (!quiet && options_.onPermissionError) {
        options_.onPermissionError();
    }
}

} // namespace brimvale
