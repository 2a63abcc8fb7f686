#pragma once

#include "core/rclone/ChildProcess.h"

#include <memory>
#include <mutex>
#include <optional>
#include <sys/types.h>

namespace brimvale {

// Holds the rclone child that a guided setup is running now, so that another thread (the sheet
// closing, Cancel) can end it. The setup starts every step through launch(); terminate() ends
// the running step and refuses every later one, so a setup cancelled between two steps cannot
// go on to start the next (an OAuth step would otherwise wait for a sign-in nobody makes).
// Hence one box per setup: a new flow gets a new box.
//
// Thread safety: every member may be called from any thread.
class RcloneGuidedProcessBox {
public:
    RcloneGuidedProcessBox() = default;
    RcloneGuidedProcessBox(const RcloneGuidedProcessBox&) = delete;
    RcloneGuidedProcessBox& operator=(const RcloneGuidedProcessBox&) = delete;

    // Starts a step's child and keeps it as the latest. Throws CancellationError once the box
    // was terminated (nothing is started), std::system_error when the child cannot start.
    std::shared_ptr<ChildProcess> launch(const ChildProcessOptions& options);

    // Sends the running step SIGTERM (SIGKILL after its grace period); that step ends with a
    // non-zero exit, and launch() refuses from now on.
    void terminate() noexcept;
    bool isTerminated() const;

    // The process id of the latest step while it runs.
    std::optional<pid_t> runningProcessID() const;

private:
    mutable std::mutex lock_;            // guards proc_ and terminated_
    std::shared_ptr<ChildProcess> proc_; // the latest step's child
    bool terminated_ = false;            // set once by terminate(), never cleared
};

} // namespace brimvale
