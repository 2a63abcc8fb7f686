#pragma once

#include "core/rclone/ChildProcess.h"
#include "core/rclone/RclonePathResolver.h"

#include <chrono>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace brimvale {

class RcloneRunQueue;

// How a streamed run ended; its standard output went to the caller as it came.
struct StreamedRcloneRun {
    int exitStatus = 0;
    std::string standardError; // as rclone wrote it (bytes, not decoded)
};

struct RcloneRunnerOptions {
    RcloneSearchLocations searchLocations = RcloneSearchLocations::standard();
    // Changes to the environment rclone inherits; none in the application (tests point
    // RCLONE_CONFIG at a file of their own here).
    std::vector<EnvironmentChange> environmentChanges;
    // How long a cancelled child may take to exit after SIGTERM before it is killed.
    std::chrono::milliseconds killGracePeriod{10'000};
    // The queue runs wait in; null means the process-wide RcloneRunQueue::shared().
    RcloneRunQueue* runQueue = nullptr;
};

// Finds and runs the rclone program: one child per run, started with exactly the given
// arguments (no shell), admitted through the run queue (at most 10 children at a time), its
// output collected, its failure turned into a BrimvaleError and the child terminated when the
// caller's stop token is stopped.
//
// Thread safety: a runner holds only its options; every operation may be called from any
// thread except the main thread (they block until rclone exits).
class RcloneRunner {
public:
    // Finds rclone at the standard places of this installation.
    RcloneRunner();
    explicit RcloneRunner(RcloneRunnerOptions options);

    const RcloneRunnerOptions& options() const { return options_; }

    std::optional<std::string> resolveRclonePath() const;

    // Runs rclone and returns the bytes it wrote to standard output. Throws
    // BrimvaleError::rcloneNotInstalled when there is no program (before anything is queued),
    // std::system_error when the child cannot be started, BrimvaleError::scanFailed (with
    // `remoteLabelForErrors` and standard error, or "exit N") for a non-zero exit, and
    // CancellationError when `stopToken` is stopped, whatever the child's exit status.
    std::string runRcloneCollectingStdout(const std::vector<std::string>& arguments,
                                          const std::string& remoteLabelForErrors,
                                          std::stop_token stopToken = {}) const;

    // The same, with standard output decoded as UTF-8 (ill-formed bytes become U+FFFD).
    std::string runRclone(const std::vector<std::string>& arguments,
                          const std::string& remoteLabelForErrors,
                          std::stop_token stopToken = {}) const;

    // Runs rclone and hands its standard output to `onOutput` chunk by chunk, on this thread,
    // as the child writes it; standard output is never held whole. A non-zero exit is not an
    // error here: the caller reads the status and standard error. Throws
    // BrimvaleError::rcloneNotInstalled, std::system_error when the child cannot be started,
    // CancellationError when `stopToken` is stopped (the child is terminated), and whatever
    // `onOutput` throws (the child is then killed).
    StreamedRcloneRun runRcloneStreaming(const std::vector<std::string>& arguments,
                                         const std::function<void(std::string_view)>& onOutput,
                                         std::stop_token stopToken = {}) const;

private:
    RcloneRunnerOptions options_;
};

} // namespace brimvale
