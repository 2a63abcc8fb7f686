// Connecting an existing account in AccountOnboarding: guided sign-in (first connection or
// again after a failure), the web helper's sheet, and finishing or cancelling the setup.
#include "core/coordinator/AccountOnboardingInternals.h"
#include "core/onboarding/RcloneGuidedProcessBox.h"
#include "core/onboarding/RcloneGuidedSetup.h"
#include "core/onboarding/RcloneWebConfigServer.h"
#include "core/rclone/BrimvaleError.h"
#include "core/support/Task.h"

namespace brimvale {

void AccountOnboarding::runGuidedConnect(const ProviderRef& provider, bool reconnect,
                                         std::function<void(bool)> onFinished) {
    if (!provider) {
        reportFinished(onFinished, false);
        return;
    }
    const std::string id = provider->remoteID();
    const std::string type = provider->rcloneType();
    auto box = freshProcessBox();
    guidedConnectBox_ = box;
    publish(isGuidedConnectRunning_, true, PublishedField::isGuidedConnectRunning);
    publish(mainFlowSignInURL_, std::optional<std::string>(), PublishedField::mainFlowSignInURL);
    coordinator_.applyPaneState(ScannerState::NeedsSetup{provider}, id);
    RcloneGuidedSetup setup(coordinator_.options_.runner);
    coordinator_.launchTask("connect " + id, [this, setup, box, provider, id, type, reconnect,
                                              onFinished](std::stop_token token) {
        std::optional<RcloneGuidedSetupOutcome> outcome;
        std::optional<std::string> failure;
        const auto onURL = [this](const std::string& url) {
            coordinator_.postIfAlive([this, url] {
                publish(mainFlowSignInURL_, std::optional<std::string>(url),
                        PublishedField::mainFlowSignInURL);
                publish(oauthBrowserURL_, std::optional<std::string>(url),
                        PublishedField::oauthBrowserURL);
            });
        };
        try {
            outcome = reconnect ? setup.reconnectRemote(id, type, *box, onURL, token)
                                : setup.configureIfPossible(id, type, *box, onURL, token);
        } catch (const CancellationError&) {
        } catch (const std::exception& error) {
            failure = ScanErrorInfo::addAccountFlowMessage(error);
        }
        coordinator_.postIfAlive([this, box, provider, id, outcome, failure, onFinished] {
            const bool ownsRunningFlag = guidedConnectBox_ == box;
            if (ownsRunningFlag) {
                guidedConnectBox_.reset();
            }
            if (guidedProcessBox_ != box) {
                // Cancelled, or another flow (an add-account sign-in, a form) replaced this
                // one: no connect runs any more unless a newer connect took the flag.
                if (ownsRunningFlag) {
                    publish(isGuidedConnectRunning_, false, PublishedField::isGuidedConnectRunning);
                }
                reportFinished(onFinished, false);
                return;
            }
            guidedProcessBox_.reset();
            if (failure) {
                publish(isGuidedConnectRunning_, false, PublishedField::isGuidedConnectRunning);
                coordinator_.applyPaneState(ScannerState::Error{ScanErrorInfo{*failure, true}}, id);
                reportFinished(onFinished, false);
                return;
            }
            if (!outcome) {
                publish(isGuidedConnectRunning_, false, PublishedField::isGuidedConnectRunning);
                reportFinished(onFinished, false);
                return;
            }
            if (*outcome == RcloneGuidedSetupOutcome::needsInteractiveWebConfig) {
                // Still running from the user's point of view: the web helper takes over.
                openFullWebConfigOnly(provider);
                reportFinished(onFinished, false);
                return;
            }
            completeConnectAfterGuided(id);
            reportFinished(onFinished, true);
        });
    });
}

void AccountOnboarding::beginGuidedConnect(const ProviderRef& provider,
                                           std::function<void(bool)> onFinished) {
    runGuidedConnect(provider, false, std::move(onFinished));
}

void AccountOnboarding::beginReconnect(const ProviderRef& provider,
                                       std::function<void(bool)> onFinished) {
    runGuidedConnect(provider, true, std::move(onFinished));
}

void AccountOnboarding::completeConnectAfterGuided(const std::string& remoteID) {
    terminateGuidedProcess();
    publish(isGuidedConnectRunning_, false, PublishedField::isGuidedConnectRunning);
    publish(mainFlowSignInURL_, std::optional<std::string>(), PublishedField::mainFlowSignInURL);
    coordinator_.forgetPane(remoteID);
    refreshThenSelect(remoteID);
}

void AccountOnboarding::openFullWebConfigOnly(const ProviderRef& provider) {
    terminateGuidedProcess();
    std::string failure;
    const auto url = startWebConfigServer(failure);
    publish(webConfigURL_, url, PublishedField::webConfigURL);
    if (!url) {
        if (provider) {
            coordinator_.applyPaneState(ScannerState::Error{ScanErrorInfo{failure, false}},
                                        provider->remoteID());
        }
        return;
    }
    publish(showWebConfigSheet_, true, PublishedField::showWebConfigSheet);
}

void AccountOnboarding::presentEmbeddedWebConfigPanel(const ProviderRef& provider) {
    if (webConfigURL_ && webConfigServer_ && webConfigServer_->isRunning()) {
        publish(showWebConfigSheet_, true, PublishedField::showWebConfigSheet);
        return;
    }
    openFullWebConfigOnly(provider);
}

void AccountOnboarding::dismissWebConfigSheet() {
    stopWebConfigServer();
    publish(showWebConfigSheet_, false, PublishedField::showWebConfigSheet);
    publish(webConfigURL_, std::optional<std::string>(), PublishedField::webConfigURL);
}

void AccountOnboarding::finishSetup(const ProviderRef& provider) {
    terminateGuidedProcess();
    dismissWebConfigSheet();
    publish(isGuidedConnectRunning_, false, PublishedField::isGuidedConnectRunning);
    publish(mainFlowSignInURL_, std::optional<std::string>(), PublishedField::mainFlowSignInURL);
    if (!provider) {
        coordinator_.refreshProviders();
        return;
    }
    coordinator_.forgetPane(provider->remoteID());
    refreshThenSelect(provider->remoteID());
}

void AccountOnboarding::cancelSetup(const ProviderRef& provider) {
    terminateGuidedProcess();
    dismissWebConfigSheet();
    publish(isGuidedConnectRunning_, false, PublishedField::isGuidedConnectRunning);
    publish(mainFlowSignInURL_, std::optional<std::string>(), PublishedField::mainFlowSignInURL);
    if (provider) {
        coordinator_.applyPaneState(ScannerState::idle(), provider->remoteID());
    }
    coordinator_.refreshProviders();
}

void AccountOnboarding::acknowledgeOAuthBrowserOpened() {
    publish(oauthBrowserURL_, std::optional<std::string>(), PublishedField::oauthBrowserURL);
}

} // namespace brimvale
