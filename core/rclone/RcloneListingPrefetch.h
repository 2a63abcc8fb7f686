#pragma once

#include "core/rclone/RcloneRunner.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// Listings started before anyone asks for them. A command-line scan knows which listing it
// will run long before the account list (one more rclone run) has said what the account is:
// it starts the listing at once, and the scan takes the run over when it asks for exactly the
// same command line, with what the run wrote so far. A run nobody takes is stopped.
//
// Thread safety: every operation may be called from any thread except the main thread.
class RcloneListingPrefetch {
public:
    static RcloneListingPrefetch& shared();

    RcloneListingPrefetch() = default;
    RcloneListingPrefetch(const RcloneListingPrefetch&) = delete;
    RcloneListingPrefetch& operator=(const RcloneListingPrefetch&) = delete;
    ~RcloneListingPrefetch();

    // Starts `arguments` through `runner` on a thread of its own; its output is kept until the
    // run is taken. A second start of the same command line does nothing.
    void start(const RcloneRunner& runner, std::vector<std::string> arguments);

    // The run started with exactly `arguments`, when there is one: what it wrote so far and
    // everything it writes from now on goes to `onOutput` on this thread, and its result is
    // returned once it has ended; failures are thrown as RcloneRunner::runRcloneStreaming
    // throws them. Stopping `stopToken` stops the run. Nothing when no such run was started.
    std::optional<StreamedRcloneRun>
    takeAndRun(const std::vector<std::string>& arguments,
               const std::function<void(std::string_view)>& onOutput, std::stop_token stopToken);

    // Stops every run nobody took, and waits for them.
    void cancelAll();

private:
    struct Run;
    std::mutex mutex_; // guards runs_
    std::map<std::vector<std::string>, std::shared_ptr<Run>> runs_;
};

} // namespace brimvale
