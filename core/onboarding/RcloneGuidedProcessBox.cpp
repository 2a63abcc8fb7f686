#include "core/onboarding/RcloneGuidedProcessBox.h"

#include "core/support/Task.h"

namespace brimvale {

std::shared_ptr<ChildProcess> RcloneGuidedProcessBox::launch(const ChildProcessOptions& options) {
    std::lock_guard guard(lock_);
    if (terminated_) {
        throw CancellationError();
    }
    // Spawned under the lock, so terminate() either sees this child or stops it from starting.
    proc_ = ChildProcess::spawn(options);
    return proc_;
}

void RcloneGuidedProcessBox::terminate() noexcept {
    std::lock_guard guard(lock_);
    terminated_ = true;
    if (proc_) {
        proc_->terminate();
    }
}

bool RcloneGuidedProcessBox::isTerminated() const {
    std::lock_guard guard(lock_);
    return terminated_;
}

std::optional<pid_t> RcloneGuidedProcessBox::runningProcessID() const {
    std::lock_guard guard(lock_);
    if (proc_ && proc_->isRunning()) {
        return proc_->pid();
    }
    return std::nullopt;
}

} // namespace brimvale
