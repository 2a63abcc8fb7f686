#include "core/rclone/RcloneListingPrefetch.h"

#include "core/support/ScanDiagnostics.h"
#include "core/support/Task.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <thread>

namespace brimvale {

// One prefetched run: its thread writes, the taker reads.
struct RcloneListingPrefetch::Run {
    std::mutex mutex;                // guards the fields below
    std::condition_variable changed; // a chunk came or the run ended
    std::deque<std::string> chunks;  // written by rclone, not yet handed on
    bool ended = false;
    StreamedRcloneRun result;
    std::exception_ptr failure;
    std::stop_source stop;
    std::thread thread;

    void stopAndJoin() {
        stop.request_stop();
        if (thread.joinable()) {
            thread.join();
        }
    }
};

RcloneListingPrefetch& RcloneListingPrefetch::shared() {
    static auto* prefetch = new RcloneListingPrefetch(); // never destroyed: see cancelAll
    return *prefetch;
}

RcloneListingPrefetch::~RcloneListingPrefetch() {
    cancelAll();
}

void RcloneListingPrefetch::start(const RcloneRunner& runner, std::vector<std::string> arguments) {
    auto run = std::make_shared<Run>();
    {
        std::lock_guard lock(mutex_);
        if (!runs_.try_emplace(arguments, run).second) {
            return;
        }
    }
    run->thread = std::thread([run, runner, arguments = std::move(arguments)] {
        StreamedRcloneRun result;
        std::exception_ptr failure;
        try {
            result = runner.runRcloneStreaming(
                arguments,
                [&run](std::string_view chunk) {
                    {
                        std::lock_guard lock(run->mutex);
                        run->chunks.emplace_back(chunk);
                    }
                    run->changed.notify_all();
                },
                run->stop.get_token());
        } catch (...) {
            failure = std::current_exception();
        }
        {
            std::lock_guard lock(run->mutex);
            run->result = std::move(result);
            run->failure = failure;
            run->ended = true;
        }
        run->changed.notify_all();
    });
}

std::optional<StreamedRcloneRun>
RcloneListingPrefetch::takeAndRun(const std::vector<std::string>& arguments,
                                  const std::function<void(std::string_view)>& onOutput,
                                  std::stop_token stopToken) {
    std::shared_ptr<Run> run;
    {
        std::lock_guard lock(mutex_);
        const auto found = runs_.find(arguments);
        if (found == runs_.end()) {
            return std::nullopt;
        }
        run = std::move(found->second);
        runs_.erase(found);
    }
    ScanDiagnostics::log("listing taken over from its early start");
    // Whatever ends this call (the end of the run, a cancellation, a throwing onOutput), the
    // run's thread is gone afterwards.
    struct Joiner {
        Run& run;
        ~Joiner() { run.stopAndJoin(); }
    } joiner{*run};
    const std::stop_callback onStop(stopToken, [&run] {
        run->stop.request_stop();
        run->changed.notify_all();
    });
    for (;;) {
        std::deque<std::string> chunks;
        bool ended = false;
        {
            std::unique_lock lock(run->mutex);
            run->changed.wait(lock, [&] { return !run->chunks.empty() || run->ended; });
            chunks.swap(run->chunks);
            ended = run->ended;
        }
        for (const auto& chunk : chunks) {
            onOutput(chunk);
        }
        if (ended) {
            break;
        }
    }
    std::lock_guard lock(run->mutex);
    if (run->failure) {
        std::rethrow_exception(run->failure);
    }
    throwIfCancelled(stopToken);
    return run->result;
}

void RcloneListingPrefetch::cancelAll() {
    std::map<std::vector<std::string>, std::shared_ptr<Run>> untaken;
    {
        std::lock_guard lock(mutex_);
        untaken.swap(runs_);
    }
    for (auto& [arguments, run] : untaken) {
        run->stopAndJoin();
    }
}

} // namespace brimvale
