#include "cli/CoordinatorSession.h"

#include "core/support/QSettingsStore.h"

namespace brimvale::cli {

CoordinatorSession::CoordinatorSession(LocalScanOptions localScanOptions)
    : viewModel_(std::make_unique<ScannerViewModel>(
          ScannerViewModelOptions{.mainQueue = &loop_,
                                  .settings = std::make_shared<QSettingsStore>(),
                                  .localScanOptions = std::move(localScanOptions)})) {
    viewModel_->addObserver(this);
}

CoordinatorSession::~CoordinatorSession() {
    viewModel_->removeObserver(this);
}

void CoordinatorSession::loadAccounts() {
    bool loaded = false;
    viewModel_->refreshProviders([this, &loaded] {
        loaded = true;
        loop_.quit();
    });
    loop_.run();
}

void CoordinatorSession::runUntil(const std::function<bool()>& finished,
                                  std::function<void(PublishedField)> onChange) {
    if (finished()) {
        return;
    }
    finished_ = finished;
    onChange_ = std::move(onChange);
    loop_.run();
    finished_ = nullptr;
    onChange_ = nullptr;
}

void CoordinatorSession::stop() {
    loop_.quit();
}

void CoordinatorSession::publishedFieldChanged(PublishedField field) {
    if (onChange_) {
        onChange_(field);
    }
    if (finished_ && finished_()) {
        loop_.quit();
    }
}

} // namespace brimvale::cli
