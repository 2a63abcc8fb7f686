// Adding an account: the sheet's fields, the guided sign-in of a new remote and the web helper.
#include "core/coordinator/AccountOnboarding.h"

#include "core/coordinator/AccountOnboardingInternals.h"
#include "core/onboarding/CloudServiceCatalog.h"
#include "core/onboarding/RcloneGuidedProcessBox.h"
#include "core/onboarding/RcloneGuidedSetup.h"
#include "core/onboarding/RcloneWebConfigServer.h"
#include "core/rclone/BrimvaleError.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/Task.h"

#include <algorithm>

namespace brimvale {
namespace {

// rclone accepts letters, digits, "_", "-", ".", "@" and spaces in a remote name, not at its
// start a "-" or a space; Brimvale keeps to names that are safe on a command line too.
bool isValidRemoteName(std::string_view name) {
    if (name.empty() || name.front() == '-' || name.size() > 200) {
        return false;
    }
    for (const char c : name) {
        const bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                             (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.' || c == '@';
        if (!allowed) {
            return false;
        }
    }
    return true;
}

CloudServiceDefinition definitionForType(const std::string& rcloneType) {
    for (const auto& definition : CloudServiceCatalog::majorServices()) {
        if (definition.rcloneType == rcloneType) {
            return definition;
        }
    }
    return {.rcloneType = rcloneType, .displayName = rcloneType, .defaultRemoteName = rcloneType};
}

} // namespace

AccountOnboarding::AccountOnboarding(ScannerViewModel& coordinator)
    : coordinator_(coordinator) {}

AccountOnboarding::~AccountOnboarding() {
    endHelperProcesses();
}

void AccountOnboarding::endHelperProcesses() {
    terminateGuidedProcess();
    // The web helper can read every account's secrets: it must not outlive its use.
    stopWebConfigServer();
}

std::optional<std::string>
AccountOnboarding::remoteNameProblem(const std::string& remoteName) const {
    if (!isValidRemoteName(remoteName)) {
        return "Use letters, digits, \u201c_\u201d, \u201c-\u201d, \u201c.\u201d or \u201c@\u201d "
               "for the account name, not starting with \u201c-\u201d.";
    }
    if (coordinator_.configuredRemoteNames_.contains(remoteName)) {
        return "An account named \u201c" + remoteName + "\u201d already exists.";
    }
    return std::nullopt;
}

void AccountOnboarding::terminateGuidedProcess() {
    if (guidedProcessBox_) {
        guidedProcessBox_->terminate();
        guidedProcessBox_.reset();
    }
}

std::shared_ptr<RcloneGuidedProcessBox> AccountOnboarding::freshProcessBox() {
    terminateGuidedProcess();
    guidedProcessBox_ = std::make_shared<RcloneGuidedProcessBox>();
    return guidedProcessBox_;
}

void AccountOnboarding::stopWebConfigServer() {
    if (webConfigServer_) {
        webConfigServer_->stop();
    }
}

std::optional<std::string> AccountOnboarding::startWebConfigServer(std::string& failure) {
    if (!webConfigServer_) {
        webConfigServer_ = std::make_unique<RcloneWebConfigServer>(coordinator_.options_.runner);
    }
    try {
        // rclone starts in well under a second; only the launch itself is waited for here.
        return webConfigServer_->startWebConfig();
    } catch (const std::exception& error) {
        failure = ScanErrorInfo::addAccountFlowMessage(error);
        return std::nullopt;
    }
}

void AccountOnboarding::resetAddAccountFields() {
    publish(addAccountGuidedRunning_, false, PublishedField::addAccountGuidedRunning);
    publish(addAccountError_, std::optional<std::string>(), PublishedField::addAccountError);
    publish(addAccountSignInURL_, std::optional<std::string>(),
            PublishedField::addAccountSignInURL);
    publish(addAccountWebURL_, std::optional<std::string>(), PublishedField::addAccountWebURL);
    publish(addAccountPendingRemoteName_, std::optional<std::string>(),
            PublishedField::addAccountPendingRemoteName);
    publish(addAccountPendingRcloneType_, std::optional<std::string>(),
            PublishedField::addAccountPendingRcloneType);
    publish(addAccountPendingNativeKind_, std::optional<NativeCredentialOnboardingKind>(),
            PublishedField::addAccountPendingNativeKind);
}

void AccountOnboarding::refreshThenSelect(const std::string& remoteID) {
    if (!coordinator_.options_.selectAccountsAfterSetup) {
        coordinator_.refreshProviders();
        return;
    }
    coordinator_.refreshProviders([this, remoteID] {
        if (const ProviderRef chosen = coordinator_.provider(remoteID)) {
            // A fresh connection starts from a clean pane, not from the failure it replaces.
            if (!coordinator_.paneState(remoteID).is<ScannerState::Done>()) {
                coordinator_.forgetPane(remoteID);
            }
            coordinator_.selectProvider(chosen);
        }
    });
}

void AccountOnboarding::beginAddAccount() {
    terminateGuidedProcess();
    resetAddAccountFields();
    addAccountCreatedRemote_.reset();
    publish(isPresentingAddAccount_, true, PublishedField::isPresentingAddAccount);
    loadBackends();
}

void AccountOnboarding::loadBackends() {
    if (rcloneBackends_ || loadingBackends_) {
        return;
    }
    loadingBackends_ = true;
    coordinator_.launchTask("rclone backends", [this](std::stop_token token) {
        std::shared_ptr<const RcloneBackendList> backends;
        try {
            backends = RcloneBackends::load(coordinator_.options_.runner, token);
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            // The sheet keeps its own rows; the next sheet tries again.
            ScanDiagnostics::log(std::string("could not read rclone's backends: ") + error.what());
        }
        coordinator_.postIfAlive([this, backends] {
            loadingBackends_ = false;
            publish(rcloneBackends_, backends, PublishedField::rcloneBackends);
        });
    });
}

void AccountOnboarding::addAccountPickService(const CloudServiceDefinition& definition) {
    RemoteNameSet taken(coordinator_.configuredRemoteNames_.begin(),
                        coordinator_.configuredRemoteNames_.end());
    publish(addAccountPendingRcloneType_, std::optional<std::string>(definition.rcloneType),
            PublishedField::addAccountPendingRcloneType);
    publish(addAccountPendingRemoteName_,
            std::optional<std::string>(
                CloudServiceCatalog::suggestedUnusedRemoteName(definition, taken)),
            PublishedField::addAccountPendingRemoteName);
    publish(addAccountPendingNativeKind_, CloudServiceCatalog::nativeOnboardingKind(definition),
            PublishedField::addAccountPendingNativeKind);
    publish(addAccountError_, std::optional<std::string>(), PublishedField::addAccountError);
}

bool AccountOnboarding::beginAddAccountFlow(const std::string& remoteName,
                                            const std::string& rcloneType,
                                            const std::function<void(bool)>& onFinished) {
    publish(addAccountPendingRemoteName_, std::optional<std::string>(remoteName),
            PublishedField::addAccountPendingRemoteName);
    publish(addAccountPendingRcloneType_, std::optional<std::string>(rcloneType),
            PublishedField::addAccountPendingRcloneType);
    if (auto problem = remoteNameProblem(remoteName);
        problem && addAccountCreatedRemote_ != remoteName) {
        publish(addAccountError_, problem, PublishedField::addAccountError);
        reportFinished(onFinished, false);
        return false;
    }
    return true;
}

void AccountOnboarding::runAddAccountGuidedFlow(const std::string& remoteName,
                                                const std::string& rcloneType,
                                                std::function<void(bool)> onFinished) {
    if (!beginAddAccountFlow(remoteName, rcloneType, onFinished)) {
        return;
    }
    RcloneGuidedSetup setup(coordinator_.options_.runner);
    runAddAccountSetup(
        remoteName,
        [setup, remoteName, rcloneType](RcloneGuidedProcessBox& box,
                                        const OAuthURLCallback& onOAuthURL, std::stop_token token) {
            return setup.configureIfPossible(remoteName, rcloneType, box, onOAuthURL,
                                             std::move(token));
        },
        std::move(onFinished));
}

void AccountOnboarding::applyBackendOptions(const std::string& remoteName,
                                            const std::string& rcloneType,
                                            std::vector<std::pair<std::string, std::string>> values,
                                            std::function<void(bool)> onFinished) {
    if (!beginAddAccountFlow(remoteName, rcloneType, onFinished)) {
        return;
    }
    // The values of password options are kept out of every error and log line.
    std::vector<std::string> secrets;
    if (rcloneBackends_) {
        const auto backend = std::ranges::find(*rcloneBackends_, rcloneType, &RcloneBackend::type);
        for (const auto& [key, value] : values) {
            const RcloneBackendOption* option =
                backend == rcloneBackends_->end() ? nullptr : backend->option(key);
            if (option == nullptr || option->isPassword) {
                secrets.push_back(value);
            }
        }
    }
    const RcloneAdapter& helper = coordinator_.addAccountHelper_;
    RcloneGuidedSetup setup(coordinator_.options_.runner);
    runAddAccountSetup(
        remoteName,
        [&helper, setup, remoteName, rcloneType, values = std::move(values),
         secrets = std::move(secrets)](RcloneGuidedProcessBox& box,
                                       const OAuthURLCallback& onOAuthURL, std::stop_token token) {
            const std::string reply =
                helper.writeRemoteSettings(remoteName, rcloneType, values, secrets, token);
            return setup.continueConfiguration(remoteName, rcloneType, reply, box, onOAuthURL,
                                               std::move(token));
        },
        std::move(onFinished));
}

void AccountOnboarding::runAddAccountSetup(
    const std::string& remoteName,
    std::function<RcloneGuidedSetupOutcome(RcloneGuidedProcessBox&, const OAuthURLCallback&,
                                           std::stop_token)>
        configure,
    std::function<void(bool)> onFinished) {
    publish(addAccountError_, std::optional<std::string>(), PublishedField::addAccountError);
    publish(addAccountSignInURL_, std::optional<std::string>(),
            PublishedField::addAccountSignInURL);
    publish(addAccountGuidedRunning_, true, PublishedField::addAccountGuidedRunning);
    addAccountCreatedRemote_ = remoteName;
    auto box = freshProcessBox();
    coordinator_.launchTask("add " + remoteName, [this, configure = std::move(configure), box,
                                                  remoteName, onFinished](std::stop_token token) {
        std::optional<RcloneGuidedSetupOutcome> outcome;
        std::string failure;
        try {
            outcome = configure(
                *box,
                [this](const std::string& url) {
                    coordinator_.postIfAlive([this, url] {
                        publish(addAccountSignInURL_, std::optional<std::string>(url),
                                PublishedField::addAccountSignInURL);
                        publish(oauthBrowserURL_, std::optional<std::string>(url),
                                PublishedField::oauthBrowserURL);
                    });
                },
                token);
        } catch (const CancellationError&) {
            failure = "";
        } catch (const std::exception& error) {
            failure = ScanErrorInfo::addAccountFlowMessage(error);
        }
        coordinator_.postIfAlive([this, box, outcome, failure, remoteName, onFinished] {
            if (guidedProcessBox_ != box) {
                return; // a newer flow replaced this one
            }
            guidedProcessBox_.reset();
            publish(addAccountGuidedRunning_, false, PublishedField::addAccountGuidedRunning);
            if (!outcome) {
                if (!failure.empty()) {
                    publish(addAccountError_, std::optional<std::string>(failure),
                            PublishedField::addAccountError);
                }
                coordinator_.refreshProviders();
                reportFinished(onFinished, false);
                return;
            }
            if (*outcome == RcloneGuidedSetupOutcome::needsInteractiveWebConfig) {
                // The remote needs more than rclone asks without a terminal: the user finishes
                // it in the web helper, then completeAddAccount.
                std::string webFailure;
                const auto url = startWebConfigServer(webFailure);
                publish(addAccountWebURL_, url, PublishedField::addAccountWebURL);
                if (!url) {
                    publish(addAccountError_, std::optional<std::string>(webFailure),
                            PublishedField::addAccountError);
                }
                coordinator_.refreshProviders();
                reportFinished(onFinished, false);
                return;
            }
            addAccountCreatedRemote_.reset();
            publish(isPresentingAddAccount_, false, PublishedField::isPresentingAddAccount);
            resetAddAccountFields();
            refreshThenSelect(remoteName);
            reportFinished(onFinished, true);
        });
    });
}

void AccountOnboarding::retryAddAccountOAuthFlow(std::function<void(bool)> onFinished) {
    terminateGuidedProcess();
    if (!addAccountPendingRemoteName_ || !addAccountPendingRcloneType_) {
        reportFinished(onFinished, false);
        return;
    }
    runAddAccountGuidedFlow(*addAccountPendingRemoteName_, *addAccountPendingRcloneType_,
                            std::move(onFinished));
}

void AccountOnboarding::openAddAccountAdvancedWebUI() {
    terminateGuidedProcess();
    std::string failure;
    const auto url = startWebConfigServer(failure);
    publish(addAccountWebURL_, url, PublishedField::addAccountWebURL);
    if (!url) {
        publish(addAccountError_, std::optional<std::string>(failure),
                PublishedField::addAccountError);
    }
}

void AccountOnboarding::completeAddAccount() {
    terminateGuidedProcess();
    stopWebConfigServer();
    const auto pending = addAccountPendingRemoteName_;
    addAccountCreatedRemote_.reset();
    publish(isPresentingAddAccount_, false, PublishedField::isPresentingAddAccount);
    resetAddAccountFields();
    if (pending) {
        refreshThenSelect(*pending);
    } else {
        coordinator_.refreshProviders();
    }
}

void AccountOnboarding::completeNativeAddAccount(const std::string& remoteName) {
    terminateGuidedProcess();
    stopWebConfigServer();
    addAccountCreatedRemote_.reset();
    publish(isPresentingAddAccount_, false, PublishedField::isPresentingAddAccount);
    resetAddAccountFields();
    refreshThenSelect(remoteName);
}

void AccountOnboarding::cancelAddAccount() {
    terminateGuidedProcess();
    stopWebConfigServer();
    publish(isPresentingAddAccount_, false, PublishedField::isPresentingAddAccount);
    resetAddAccountFields();
    const auto unfinished = std::exchange(addAccountCreatedRemote_, std::nullopt);
    if (!unfinished) {
        coordinator_.refreshProviders();
        return;
    }
    // The half-made remote of a cancelled sign-in would only clutter the configuration.
    coordinator_.launchTask(
        "cancel add " + *unfinished, [this, name = *unfinished](std::stop_token token) {
            try {
                coordinator_.addAccountHelper_.deleteRemote(name, token);
            } catch (const CancellationError&) {
                throw;
            } catch (const std::exception& error) {
                ScanDiagnostics::log("could not delete unfinished remote " + name + ": " +
                                     error.what());
            }
            coordinator_.postIfAlive([this] { coordinator_.refreshProviders(); });
        });
}

void AccountOnboarding::beginAddAnotherAccount(const ProviderRef& provider) {
    if (!provider || !coordinator_.canAddAnotherAccount(*provider)) {
        return;
    }
    const CloudServiceDefinition definition = definitionForType(provider->rcloneType());
    beginAddAccount();
    addAccountPickService(definition);
    if (addAccountPendingNativeKind_ || !addAccountPendingRemoteName_ ||
        CloudServiceCatalog::usesGeneratedForm(definition)) {
        return; // the sheet shows the form
    }
    runAddAccountGuidedFlow(*addAccountPendingRemoteName_, definition.rcloneType);
}

} // namespace brimvale
