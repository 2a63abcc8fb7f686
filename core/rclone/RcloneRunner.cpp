#include "core/rclone/RcloneRunner.h"

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/RcloneLogMasking.h"
#include "core/rclone/RcloneProcessLog.h"
#include "core/rclone/RcloneRunQueue.h"
#include "core/rclone/Utf8Text.h"
#include "core/support/Task.h"

#include <memory>
#include <mutex>

namespace brimvale {
namespace {

// One run's shared state between the running thread and the cancellation callback.
class RcloneRunState {
public:
    // Starts the child unless the run was cancelled already; then the callback will reach it.
    void launch(const ChildProcessOptions& options) {
        std::lock_guard lock(mutex_);
        if (cancellationRequested_) {
            throw CancellationError();
        }
        process_ = ChildProcess::spawn(options);
    }

    // The cancellation callback: remembers the request and terminates a running child.
    void requestCancellation() noexcept {
        std::lock_guard lock(mutex_);
        cancellationRequested_ = true;
        if (process_) {
            process_->terminate();
        }
    }

    bool cancellationRequested() const {
        std::lock_guard lock(mutex_);
        return cancellationRequested_;
    }

    // Only the running thread calls this, after launch().
    ChildProcess& process() { return *process_; }

private:
    mutable std::mutex mutex_;           // guards both fields
    bool cancellationRequested_ = false; // set once by the callback, never cleared
    std::unique_ptr<ChildProcess> process_;
};

long long millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start)
        .count();
}

} // namespace

RcloneRunner::RcloneRunner()
    : RcloneRunner(RcloneRunnerOptions{}) {}

RcloneRunner::RcloneRunner(RcloneRunnerOptions options)
    : options_(std::move(options)) {}

std::optional<std::string> RcloneRunner::resolveRclonePath() const {
    return brimvale::resolveRclonePath(options_.searchLocations);
}

std::string RcloneRunner::runRcloneCollectingStdout(const std::vector<std::string>& arguments,
                                                    const std::string& remoteLabelForErrors,
                                                    std::stop_token stopToken) const {
    const auto program = resolveRclonePath();
    if (!program) {
        throw BrimvaleError::rcloneNotInstalled();
    }
    throwIfCancelled(stopToken);

    RcloneRunState state;
    const std::stop_callback onCancel(stopToken, [&state] { state.requestCancellation(); });
    RcloneRunQueue& queue = options_.runQueue ? *options_.runQueue : RcloneRunQueue::shared();
    const auto slot = queue.acquire(stopToken);

    RcloneProcessLog::debug("rclone spawn args=" + argumentsForLog(arguments));
    const auto start = std::chrono::steady_clock::now();
    state.launch({.executable = *program,
                  .arguments = arguments,
                  .environmentChanges = options_.environmentChanges,
                  .killGracePeriod = options_.killGracePeriod});
    ChildProcessResult result = state.process().collectOutputAndWait();
    const long long elapsed = millisecondsSince(start);
    const std::string standardError = Utf8Text::decodeLossy(result.standardError);
    const auto stderrChars = static_cast<long long>(Utf8Text::characterCount(standardError));

    if (state.cancellationRequested()) {
        RcloneProcessLog::debug(
            "rclone stopped by cancel exit=" + std::to_string(result.exitStatus) +
            " ms=" + std::to_string(elapsed) + " stderrChars=" + std::to_string(stderrChars));
        throw CancellationError();
    }
    RcloneProcessLog::debug("rclone exit=" + std::to_string(result.exitStatus) +
                            " stdoutBytes=" + std::to_string(result.standardOutput.size()) +
                            " ms=" + std::to_string(elapsed) +
                            " stderrChars=" + std::to_string(stderrChars));
    if (result.exitStatus != 0) {
        throw BrimvaleError::scanFailed(
            remoteLabelForErrors,
            standardError.empty() ? "exit " + std::to_string(result.exitStatus) : standardError);
    }
    return std::move(result.standardOutput);
}

StreamedRcloneRun
RcloneRunner::runRcloneStreaming(const std::vector<std::string>& arguments,
                                 const std::function<void(std::string_view)>& onOutput,
                                 std::stop_token stopToken) const {
    const auto program = resolveRclonePath();
    if (!program) {
        throw BrimvaleError::rcloneNotInstalled();
    }
    throwIfCancelled(stopToken);

    RcloneRunState state;
    const std::stop_callback onCancel(stopToken, [&state] { state.requestCancellation(); });
    RcloneRunQueue& queue = options_.runQueue ? *options_.runQueue : RcloneRunQueue::shared();
    const auto slot = queue.acquire(stopToken);

    RcloneProcessLog::debug("rclone spawn args=" + argumentsForLog(arguments));
    const auto start = std::chrono::steady_clock::now();
    state.launch({.executable = *program,
                  .arguments = arguments,
                  .environmentChanges = options_.environmentChanges,
                  .killGracePeriod = options_.killGracePeriod,
                  .standardInput = ChildStandardInput::nullDevice,
                  // A listing streams one entry per write.
                  .outputs = ChildOutputs::memoryFileAndPipe});
    std::size_t outputBytes = 0;
    ChildProcessResult result = state.process().collectOutputAndWait(
        [&](ChildOutputStream stream, std::string_view chunk) {
            if (stream == ChildOutputStream::standardOutput && !state.cancellationRequested()) {
                outputBytes += chunk.size();
                onOutput(chunk);
            }
        },
        false);
    const long long elapsed = millisecondsSince(start);
    if (state.cancellationRequested()) {
        RcloneProcessLog::debug(
            "rclone stopped by cancel exit=" + std::to_string(result.exitStatus) +
            " ms=" + std::to_string(elapsed));
        throw CancellationError();
    }
    RcloneProcessLog::debug("rclone exit=" + std::to_string(result.exitStatus) + " stdoutBytes=" +
                            std::to_string(outputBytes) + " ms=" + std::to_string(elapsed) +
                            " stderrBytes=" + std::to_string(result.standardError.size()));
    return {.exitStatus = result.exitStatus, .standardError = std::move(result.standardError)};
}

std::string RcloneRunner::runRclone(const std::vector<std::string>& arguments,
                                    const std::string& remoteLabelForErrors,
                                    std::stop_token stopToken) const {
    return Utf8Text::decodeLossy(
        runRcloneCollectingStdout(arguments, remoteLabelForErrors, std::move(stopToken)));
}

} // namespace brimvale
