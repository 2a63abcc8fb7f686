#pragma once

#include "core/coordinator/ScannerViewModel.h"
#include "core/support/LoopMainQueue.h"

#include <functional>
#include <memory>

namespace brimvale::cli {

// The coordinator as the command line drives it: the same ScannerViewModel the desktop
// application uses, its main thread being the command's own thread, which runs the loop while
// the command waits. Settings, saved scans and rclone configuration are the user's own.
class CoordinatorSession final : private ScannerViewModelObserver {
public:
    explicit CoordinatorSession(LocalScanOptions localScanOptions = {});
    // The coordinator, without selecting accounts it adds (the command line only adds them).
    static ScannerViewModelOptions options(LoopMainQueue& loop, LocalScanOptions localScanOptions);
    ~CoordinatorSession() override;

    ScannerViewModel& viewModel() { return *viewModel_; }
    LoopMainQueue& loop() { return loop_; }

    // Reads the account list (refreshProviders) and returns once it is published.
    void loadAccounts();
    // Runs the loop, calling `onChange` after every change of a published field, until
    // `finished()` holds (checked after every job) or stop() is called from a job.
    void runUntil(const std::function<bool()>& finished,
                  std::function<void(PublishedField)> onChange = {});
    // Ends runUntil after the job that is running now.
    void stop();

private:
    void publishedFieldChanged(PublishedField field) override;

    LoopMainQueue loop_;
    std::unique_ptr<ScannerViewModel> viewModel_;
    std::function<void(PublishedField)> onChange_;
};

} // namespace brimvale::cli
