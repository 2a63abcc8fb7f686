// The add-account and connect hooks of ScannerViewModel: the sheet's fields, guided sign-in
// through rclone, the native credential forms and the web configuration helper.
#include "core/coordinator/CoordinatorInternals.h"
#include "core/onboarding/CloudServiceCatalog.h"
#include "core/onboarding/RcloneGuidedProcessBox.h"
#include "core/onboarding/RcloneGuidedSetup.h"
#include "core/onboarding/RcloneWebConfigServer.h"
#include "core/rclone/BrimvaleError.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/Task.h"

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

void call(const std::function<void(bool)>& onFinished, bool succeeded) {
    if (onFinished) {
        onFinished(succeeded);
    }
}

} // namespace

std::optional<std::string>
ScannerViewModel::remoteNameProblem(const std::string& remoteName) const {
    if (!isValidRemoteName(remoteName)) {
        return "Use letters, digits, \u201c_\u201d, \u201c-\u201d, \u201c.\u201d or \u201c@\u201d "
               "for the account name, not starting with \u201c-\u201d.";
    }
    if (configuredRemoteNames_.contains(remoteName)) {
        return "An account named \u201c" + remoteName + "\u201d already exists.";
    }
    return std::nullopt;
}

void ScannerViewModel::terminateGuidedProcess() {
    if (guidedProcessBox_) {
        guidedProcessBox_->terminate();
        guidedProcessBox_.reset();
    }
}

std::shared_ptr<RcloneGuidedProcessBox> ScannerViewModel::freshProcessBox() {
    terminateGuidedProcess();
    guidedProcessBox_ = std::make_shared<RcloneGuidedProcessBox>();
    return guidedProcessBox_;
}

void ScannerViewModel::stopWebConfigServer() {
    if (webConfigServer_) {
        webConfigServer_->stop();
    }
}

std::optional<std::string> ScannerViewModel::startWebConfigServer(std::string& failure) {
    if (!webConfigServer_) {
        webConfigServer_ = std::make_unique<RcloneWebConfigServer>(options_.runner);
    }
    try {
        // rclone starts in well under a second; only the launch itself is waited for here.
        return webConfigServer_->startWebConfig();
    } catch (const std::exception& error) {
        failure = ScanErrorInfo::addAccountFlowMessage(error);
        return std::nullopt;
    }
}

void ScannerViewModel::resetAddAccountFields() {
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

void ScannerViewModel::refreshThenSelect(const std::string& remoteID) {
    if (!options_.selectAccountsAfterSetup) {
        refreshProviders();
        return;
    }
    refreshProviders([this, remoteID] {
        if (const ProviderRef chosen = provider(remoteID)) {
            // A fresh connection starts from a clean pane, not from the failure it replaces.
            if (!paneState(remoteID).is<State::Done>()) {
                paneStatesByRemote_.erase(remoteID);
            }
            selectProvider(chosen);
        }
    });
}

void ScannerViewModel::beginAddAccount() {
    terminateGuidedProcess();
    resetAddAccountFields();
    addAccountCreatedRemote_.reset();
    publish(isPresentingAddAccount_, true, PublishedField::isPresentingAddAccount);
}

void ScannerViewModel::addAccountPickService(const CloudServiceDefinition& definition) {
    RemoteNameSet taken(configuredRemoteNames_.begin(), configuredRemoteNames_.end());
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

void ScannerViewModel::runAddAccountGuidedFlow(const std::string& remoteName,
                                               const std::string& rcloneType,
                                               std::function<void(bool)> onFinished) {
    publish(addAccountPendingRemoteName_, std::optional<std::string>(remoteName),
            PublishedField::addAccountPendingRemoteName);
    publish(addAccountPendingRcloneType_, std::optional<std::string>(rcloneType),
            PublishedField::addAccountPendingRcloneType);
    if (auto problem = remoteNameProblem(remoteName);
        problem && addAccountCreatedRemote_ != remoteName) {
        publish(addAccountError_, problem, PublishedField::addAccountError);
        call(onFinished, false);
        return;
    }
    publish(addAccountError_, std::optional<std::string>(), PublishedField::addAccountError);
    publish(addAccountSignInURL_, std::optional<std::string>(),
            PublishedField::addAccountSignInURL);
    publish(addAccountGuidedRunning_, true, PublishedField::addAccountGuidedRunning);
    addAccountCreatedRemote_ = remoteName;
    auto box = freshProcessBox();
    RcloneGuidedSetup setup(options_.runner);
    launchTask("add " + remoteName, [this, setup, box, remoteName, rcloneType,
                                     onFinished](std::stop_token token) {
        std::optional<RcloneGuidedSetupOutcome> outcome;
        std::string failure;
        try {
            outcome = setup.configureIfPossible(
                remoteName, rcloneType, *box,
                [this](const std::string& url) {
                    postIfAlive([this, url] {
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
        postIfAlive([this, box, outcome, failure, remoteName, onFinished] {
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
                refreshProviders();
                call(onFinished, false);
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
                refreshProviders();
                call(onFinished, false);
                return;
            }
            addAccountCreatedRemote_.reset();
            publish(isPresentingAddAccount_, false, PublishedField::isPresentingAddAccount);
            resetAddAccountFields();
            refreshThenSelect(remoteName);
            call(onFinished, true);
        });
    });
}

void ScannerViewModel::retryAddAccountOAuthFlow(std::function<void(bool)> onFinished) {
    terminateGuidedProcess();
    if (!addAccountPendingRemoteName_ || !addAccountPendingRcloneType_) {
        call(onFinished, false);
        return;
    }
    runAddAccountGuidedFlow(*addAccountPendingRemoteName_, *addAccountPendingRcloneType_,
                            std::move(onFinished));
}

void ScannerViewModel::openAddAccountAdvancedWebUI() {
    terminateGuidedProcess();
    std::string failure;
    const auto url = startWebConfigServer(failure);
    publish(addAccountWebURL_, url, PublishedField::addAccountWebURL);
    if (!url) {
        publish(addAccountError_, std::optional<std::string>(failure),
                PublishedField::addAccountError);
    }
}

void ScannerViewModel::completeAddAccount() {
    terminateGuidedProcess();
    stopWebConfigServer();
    const auto pending = addAccountPendingRemoteName_;
    addAccountCreatedRemote_.reset();
    publish(isPresentingAddAccount_, false, PublishedField::isPresentingAddAccount);
    resetAddAccountFields();
    if (pending) {
        refreshThenSelect(*pending);
    } else {
        refreshProviders();
    }
}

void ScannerViewModel::completeNativeAddAccount(const std::string& remoteName) {
    terminateGuidedProcess();
    stopWebConfigServer();
    addAccountCreatedRemote_.reset();
    publish(isPresentingAddAccount_, false, PublishedField::isPresentingAddAccount);
    resetAddAccountFields();
    refreshThenSelect(remoteName);
}

void ScannerViewModel::cancelAddAccount() {
    terminateGuidedProcess();
    stopWebConfigServer();
    publish(isPresentingAddAccount_, false, PublishedField::isPresentingAddAccount);
    resetAddAccountFields();
    const auto unfinished = std::exchange(addAccountCreatedRemote_, std::nullopt);
    if (!unfinished) {
        refreshProviders();
        return;
    }
    // The half-made remote of a cancelled sign-in would only clutter the configuration.
    launchTask("cancel add " + *unfinished, [this, name = *unfinished](std::stop_token token) {
        try {
            addAccountHelper_.deleteRemote(name, token);
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            ScanDiagnostics::log("could not delete unfinished remote " + name + ": " +
                                 error.what());
        }
        postIfAlive([this] { refreshProviders(); });
    });
}

void ScannerViewModel::applyNativeCredentials(
    const std::string& remoteName,
    std::function<void(const RcloneAdapter&, SettingsStore&, std::stop_token)> apply,
    std::function<void(bool)> onFinished) {
    terminateGuidedProcess();
    if (auto problem = remoteNameProblem(remoteName)) {
        publish(addAccountError_, problem, PublishedField::addAccountError);
        call(onFinished, false);
        return;
    }
    publish(addAccountError_, std::optional<std::string>(), PublishedField::addAccountError);
    publish(addAccountGuidedRunning_, true, PublishedField::addAccountGuidedRunning);
    launchTask("form " + remoteName, [this, remoteName, apply = std::move(apply),
                                      onFinished](std::stop_token token) {
        std::optional<std::string> failure;
        try {
            apply(addAccountHelper_, *options_.settings, token);
        } catch (const CancellationError&) {
            throw;
        } catch (const CredentialFormValidationError& error) {
            failure = error.message();
        } catch (const std::exception& error) {
            failure = ScanErrorInfo::addAccountFlowMessage(error);
        }
        postIfAlive([this, failure, onFinished] {
            publish(addAccountGuidedRunning_, false, PublishedField::addAccountGuidedRunning);
            publish(addAccountError_, failure, PublishedField::addAccountError);
            refreshProviders([onFinished, succeeded = !failure] { call(onFinished, succeeded); });
        });
    });
}

void ScannerViewModel::applyS3AwsNativeCredentials(const std::string& remoteName,
                                                   S3AwsCredentialFields fields,
                                                   std::function<void(bool)> onFinished) {
    applyNativeCredentials(
        remoteName,
        [remoteName, fields](const RcloneAdapter& adapter, SettingsStore& settings,
                             std::stop_token token) {
            NativeCredentialConfiguration::applyS3AwsConfiguration(adapter, remoteName, fields,
                                                                   settings, token);
        },
        std::move(onFinished));
}

void ScannerViewModel::applyS3CloudflareR2NativeCredentials(const std::string& remoteName,
                                                            CloudflareR2CredentialFields fields,
                                                            std::function<void(bool)> onFinished) {
    applyNativeCredentials(
        remoteName,
        [remoteName, fields](const RcloneAdapter& adapter, SettingsStore& settings,
                             std::stop_token token) {
            NativeCredentialConfiguration::applyS3CloudflareR2Configuration(
                adapter, remoteName, fields, settings, token);
        },
        std::move(onFinished));
}

void ScannerViewModel::applyGCSNativeCredentials(const std::string& remoteName,
                                                 GCSCredentialFields fields,
                                                 std::function<void(bool)> onFinished) {
    applyNativeCredentials(
        remoteName,
        [remoteName, fields](const RcloneAdapter& adapter, SettingsStore& settings,
                             std::stop_token token) {
            NativeCredentialConfiguration::applyGCSConfiguration(adapter, remoteName, fields,
                                                                 settings, token);
        },
        std::move(onFinished));
}

void ScannerViewModel::applyAzureBlobNativeCredentials(const std::string& remoteName,
                                                       AzureBlobCredentialFields fields,
                                                       std::function<void(bool)> onFinished) {
    applyNativeCredentials(
        remoteName,
        [remoteName, fields](const RcloneAdapter& adapter, SettingsStore& settings,
                             std::stop_token token) {
            NativeCredentialConfiguration::applyAzureBlobAccountKeyConfiguration(
                adapter, remoteName, fields, settings, token);
        },
        std::move(onFinished));
}

void ScannerViewModel::applyFTPNativeCredentials(const std::string& remoteName,
                                                 FTPCredentialFields fields,
                                                 std::function<void(bool)> onFinished) {
    applyNativeCredentials(
        remoteName,
        [remoteName, fields](const RcloneAdapter& adapter, SettingsStore&, std::stop_token token) {
            NativeCredentialConfiguration::applyFTPConfiguration(adapter, remoteName, fields,
                                                                 token);
        },
        std::move(onFinished));
}

void ScannerViewModel::applySFTPNativeCredentials(const std::string& remoteName,
                                                  SFTPCredentialFields fields,
                                                  std::function<void(bool)> onFinished) {
    applyNativeCredentials(
        remoteName,
        [remoteName, fields](const RcloneAdapter& adapter, SettingsStore&, std::stop_token token) {
            NativeCredentialConfiguration::applySFTPConfiguration(adapter, remoteName, fields,
                                                                  token);
        },
        std::move(onFinished));
}

void ScannerViewModel::applyNativeCredentials(const std::string& remoteName,
                                              const NativeCredentialFields& fields,
                                              std::function<void(bool)> onFinished) {
    std::visit(
        [&](const auto& form) {
            using Form = std::decay_t<decltype(form)>;
            if constexpr (std::is_same_v<Form, S3AwsCredentialFields>) {
                applyS3AwsNativeCredentials(remoteName, form, std::move(onFinished));
            } else if constexpr (std::is_same_v<Form, CloudflareR2CredentialFields>) {
                applyS3CloudflareR2NativeCredentials(remoteName, form, std::move(onFinished));
            } else if constexpr (std::is_same_v<Form, GCSCredentialFields>) {
                applyGCSNativeCredentials(remoteName, form, std::move(onFinished));
            } else if constexpr (std::is_same_v<Form, AzureBlobCredentialFields>) {
                applyAzureBlobNativeCredentials(remoteName, form, std::move(onFinished));
            } else if constexpr (std::is_same_v<Form, FTPCredentialFields>) {
                applyFTPNativeCredentials(remoteName, form, std::move(onFinished));
            } else {
                applySFTPNativeCredentials(remoteName, form, std::move(onFinished));
            }
        },
        fields);
}

void ScannerViewModel::beginAddAnotherAccount(const ProviderRef& provider) {
    if (!provider || !canAddAnotherAccount(*provider)) {
        return;
    }
    const CloudServiceDefinition definition = definitionForType(provider->rcloneType());
    beginAddAccount();
    addAccountPickService(definition);
    if (addAccountPendingNativeKind_ || !addAccountPendingRemoteName_) {
        return; // the sheet shows the form
    }
    runAddAccountGuidedFlow(*addAccountPendingRemoteName_, definition.rcloneType);
}

void ScannerViewModel::runGuidedConnect(const ProviderRef& provider, bool reconnect,
                                        std::function<void(bool)> onFinished) {
    if (!provider) {
        call(onFinished, false);
        return;
    }
    const std::string id = provider->remoteID();
    const std::string type = provider->rcloneType();
    auto box = freshProcessBox();
    guidedConnectBox_ = box;
    publish(isGuidedConnectRunning_, true, PublishedField::isGuidedConnectRunning);
    publish(mainFlowSignInURL_, std::optional<std::string>(), PublishedField::mainFlowSignInURL);
    applyPaneState(State::NeedsSetup{provider}, id);
    RcloneGuidedSetup setup(options_.runner);
    launchTask("connect " + id, [this, setup, box, provider, id, type, reconnect,
                                 onFinished](std::stop_token token) {
        std::optional<RcloneGuidedSetupOutcome> outcome;
        std::optional<std::string> failure;
        const auto onURL = [this](const std::string& url) {
            postIfAlive([this, url] {
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
        postIfAlive([this, box, provider, id, outcome, failure, onFinished] {
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
                call(onFinished, false);
                return;
            }
            guidedProcessBox_.reset();
            if (failure) {
                publish(isGuidedConnectRunning_, false, PublishedField::isGuidedConnectRunning);
                applyPaneState(State::Error{ScanErrorInfo{*failure, true}}, id);
                call(onFinished, false);
                return;
            }
            if (!outcome) {
                publish(isGuidedConnectRunning_, false, PublishedField::isGuidedConnectRunning);
                call(onFinished, false);
                return;
            }
            if (*outcome == RcloneGuidedSetupOutcome::needsInteractiveWebConfig) {
                // Still running from the user's point of view: the web helper takes over.
                openFullWebConfigOnly(provider);
                call(onFinished, false);
                return;
            }
            completeConnectAfterGuided(id);
            call(onFinished, true);
        });
    });
}

void ScannerViewModel::beginGuidedConnect(const ProviderRef& provider,
                                          std::function<void(bool)> onFinished) {
    runGuidedConnect(provider, false, std::move(onFinished));
}

void ScannerViewModel::beginReconnect(const ProviderRef& provider,
                                      std::function<void(bool)> onFinished) {
    runGuidedConnect(provider, true, std::move(onFinished));
}

void ScannerViewModel::completeConnectAfterGuided(const std::string& remoteID) {
    terminateGuidedProcess();
    publish(isGuidedConnectRunning_, false, PublishedField::isGuidedConnectRunning);
    publish(mainFlowSignInURL_, std::optional<std::string>(), PublishedField::mainFlowSignInURL);
    paneStatesByRemote_.erase(remoteID);
    refreshThenSelect(remoteID);
}

void ScannerViewModel::openFullWebConfigOnly(const ProviderRef& provider) {
    terminateGuidedProcess();
    std::string failure;
    const auto url = startWebConfigServer(failure);
    publish(webConfigURL_, url, PublishedField::webConfigURL);
    if (!url) {
        if (provider) {
            applyPaneState(State::Error{ScanErrorInfo{failure, false}}, provider->remoteID());
        }
        return;
    }
    publish(showWebConfigSheet_, true, PublishedField::showWebConfigSheet);
}

void ScannerViewModel::presentEmbeddedWebConfigPanel(const ProviderRef& provider) {
    if (webConfigURL_ && webConfigServer_ && webConfigServer_->isRunning()) {
        publish(showWebConfigSheet_, true, PublishedField::showWebConfigSheet);
        return;
    }
    openFullWebConfigOnly(provider);
}

void ScannerViewModel::dismissWebConfigSheet() {
    stopWebConfigServer();
    publish(showWebConfigSheet_, false, PublishedField::showWebConfigSheet);
    publish(webConfigURL_, std::optional<std::string>(), PublishedField::webConfigURL);
}

void ScannerViewModel::finishSetup(const ProviderRef& provider) {
    terminateGuidedProcess();
    dismissWebConfigSheet();
    publish(isGuidedConnectRunning_, false, PublishedField::isGuidedConnectRunning);
    publish(mainFlowSignInURL_, std::optional<std::string>(), PublishedField::mainFlowSignInURL);
    if (!provider) {
        refreshProviders();
        return;
    }
    paneStatesByRemote_.erase(provider->remoteID());
    refreshThenSelect(provider->remoteID());
}

void ScannerViewModel::cancelSetup(const ProviderRef& provider) {
    terminateGuidedProcess();
    dismissWebConfigSheet();
    publish(isGuidedConnectRunning_, false, PublishedField::isGuidedConnectRunning);
    publish(mainFlowSignInURL_, std::optional<std::string>(), PublishedField::mainFlowSignInURL);
    if (provider) {
        applyPaneState(State::idle(), provider->remoteID());
    }
    refreshProviders();
}

void ScannerViewModel::acknowledgeOAuthBrowserOpened() {
    publish(oauthBrowserURL_, std::optional<std::string>(), PublishedField::oauthBrowserURL);
}

} // namespace brimvale
