#include "cli/CoordinatorSession.h"

#include "core/support/QSettingsStore.h"

#include <chrono>

namespace brimvale::cli {

ScannerViewModelOptions CoordinatorSession::options(LoopMainQueue& loop,
                                                    LocalScanOptions localScanOptions) {
    return ScannerViewModelOptions{.mainQueue = &loop,
                                   .settings = std::make_shared<QSettingsStore>(),
                                   .localScanOptions = std::move(localScanOptions),
                                   .selectAccountsAfterSetup = false};
}

CoordinatorSession::CoordinatorSession(LocalScanOptions localScanOptions)
    : viewModel_(std::make_unique<ScannerViewModel>(options(loop_, std::move(localScanOptions)))) {
    viewModel_->addObserver(this);
}

CoordinatorSession::~CoordinatorSession() {
    viewModel_->removeObserver(this);
    // Background runs post to this loop; they must end before it goes. Cancelled runs end
    // promptly (rclone children get SIGTERM), and the loop serves those that wait for it.
    viewModel_->cancelAllWork();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    loop_.runUntil([this, deadline] {
        return !viewModel_->hasBackgroundWork() || std::chrono::steady_clock::now() > deadline;
    });
    viewModel_.reset();
}

void CoordinatorSession::loadAccounts() {
    bool loaded = false;
    viewModel_->refreshProviders([&loaded] { loaded = true; });
    loop_.runUntil([&loaded] { return loaded; });
}

void CoordinatorSession::runUntil(const std::function<bool()>& finished,
                                  std::function<void(PublishedField)> onChange) {
    onChange_ = std::move(onChange);
    loop_.runUntil(finished);
    onChange_ = nullptr;
}

void CoordinatorSession::stop() {
    loop_.quit();
}

void CoordinatorSession::publishedFieldChanged(PublishedField field) {
    if (onChange_) {
        onChange_(field);
    }
}

} // namespace brimvale::cli
