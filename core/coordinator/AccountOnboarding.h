#pragma once

#include "core/coordinator/PublishedField.h"
#include "core/model/CloudStorageProvider.h"
#include "core/onboarding/CloudServiceDefinition.h"
#include "core/onboarding/NativeCredentialConfiguration.h"
#include "core/onboarding/NativeCredentialOnboardingKind.h"
#include "core/onboarding/RcloneBackends.h"
#include "core/onboarding/RcloneGuidedSetup.h"

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

namespace brimvale {

class RcloneAdapter;
class RcloneGuidedProcessBox;
class RcloneWebConfigServer;
class ScannerViewModel;
class SettingsStore;

using ProviderRef = std::shared_ptr<CloudStorageProvider>;

// Adding and connecting accounts: the add-account sheet's fields, guided sign-in through
// rclone (the OAuth hand-off to the browser), the native credential forms and the web
// configuration helper. Owned by the coordinator, which publishes these fields and forwards
// the views' calls; its background steps run as the coordinator's tasks.
//
// Operations that run rclone return at once and finish in the background; `onFinished` (where
// taken) runs on the main thread when they are done, with whether they succeeded. Every one of
// them first ends a guided rclone step still running, except where noted.
// Thread safety: the main thread only, like the coordinator.
class AccountOnboarding {
public:
    explicit AccountOnboarding(ScannerViewModel& coordinator);
    // Ends a guided rclone step and the web helper (shutDown).
    ~AccountOnboarding();
    AccountOnboarding(const AccountOnboarding&) = delete;
    AccountOnboarding& operator=(const AccountOnboarding&) = delete;

    // Published.
    const std::optional<std::string>& webConfigURL() const { return webConfigURL_; }
    bool showWebConfigSheet() const { return showWebConfigSheet_; }
    bool isGuidedConnectRunning() const { return isGuidedConnectRunning_; }
    const std::optional<std::string>& oauthBrowserURL() const { return oauthBrowserURL_; }
    const std::optional<std::string>& mainFlowSignInURL() const { return mainFlowSignInURL_; }
    const std::optional<std::string>& addAccountWebURL() const { return addAccountWebURL_; }
    bool isPresentingAddAccount() const { return isPresentingAddAccount_; }
    bool addAccountGuidedRunning() const { return addAccountGuidedRunning_; }
    const std::optional<std::string>& addAccountError() const { return addAccountError_; }
    const std::optional<std::string>& addAccountSignInURL() const { return addAccountSignInURL_; }
    const std::optional<std::string>& addAccountPendingRemoteName() const {
        return addAccountPendingRemoteName_;
    }
    const std::optional<std::string>& addAccountPendingRcloneType() const {
        return addAccountPendingRcloneType_;
    }
    const std::optional<NativeCredentialOnboardingKind>& addAccountPendingNativeKind() const {
        return addAccountPendingNativeKind_;
    }

    // The backends of the installed rclone: null until read (beginAddAccount reads them once).
    const std::shared_ptr<const RcloneBackendList>& rcloneBackends() const {
        return rcloneBackends_;
    }

    // Opens the add-account sheet with nothing chosen.
    void beginAddAccount();
    // Proposes a free remote name for the service and says which form, if any, it uses.
    void addAccountPickService(const CloudServiceDefinition& definition);
    // Creates the remote through rclone's guided configuration (sign-in in the browser); on
    // success closes the sheet and selects the new account, which starts its first scan.
    void runAddAccountGuidedFlow(const std::string& remoteName, const std::string& rcloneType,
                                 std::function<void(bool)> onFinished = {});
    void retryAddAccountOAuthFlow(std::function<void(bool)> onFinished = {});
    // Starts the web configuration helper for the sheet (addAccountWebURL).
    void openAddAccountAdvancedWebUI();
    // The user finished in the web helper: closes the sheet, selects the pending account.
    void completeAddAccount();
    // A native form was saved: closes the sheet and selects `remoteName`.
    void completeNativeAddAccount(const std::string& remoteName);
    // Closes the sheet; a remote this flow created and never finished is deleted again.
    void cancelAddAccount();
    // The native credential forms: validate, write the remote, store its scan root. A refused
    // form sets addAccountError to the form's message.
    void applyS3AwsNativeCredentials(const std::string& remoteName, S3AwsCredentialFields fields,
                                     std::function<void(bool)> onFinished = {});
    void applyS3CloudflareR2NativeCredentials(const std::string& remoteName,
                                              CloudflareR2CredentialFields fields,
                                              std::function<void(bool)> onFinished = {});
    void applyGCSNativeCredentials(const std::string& remoteName, GCSCredentialFields fields,
                                   std::function<void(bool)> onFinished = {});
    void applyAzureBlobNativeCredentials(const std::string& remoteName,
                                         AzureBlobCredentialFields fields,
                                         std::function<void(bool)> onFinished = {});
    void applyFTPNativeCredentials(const std::string& remoteName, FTPCredentialFields fields,
                                   std::function<void(bool)> onFinished = {});
    void applySFTPNativeCredentials(const std::string& remoteName, SFTPCredentialFields fields,
                                    std::function<void(bool)> onFinished = {});
    // A form generated from rclone's description of the backend: writes the remote with
    // `values` (option name, text) in one remote-control request (secrets obscured, never on a
    // command line), then answers the questions rclone asks after it, the browser sign-in
    // included, as the guided flow does. On success closes the sheet and selects the account;
    // a remote it created and did not finish is deleted when the sheet is cancelled.
    void applyBackendOptions(const std::string& remoteName, const std::string& rcloneType,
                             std::vector<std::pair<std::string, std::string>> values,
                             std::function<void(bool)> onFinished = {});
    // The form of `fields`'s type: one of the six operations above.
    void applyNativeCredentials(const std::string& remoteName, const NativeCredentialFields& fields,
                                std::function<void(bool)> onFinished = {});
    // Another account of the provider's type: a guided type signs in at once under a free
    // name; a form type opens the sheet on its form.
    void beginAddAnotherAccount(const ProviderRef& provider);
    // Signs an existing account in (first connection, or again after a failure). The pane shows
    // needsSetup while the sign-in runs and error when it cannot run.
    void beginGuidedConnect(const ProviderRef& provider, std::function<void(bool)> onFinished = {});
    void beginReconnect(const ProviderRef& provider, std::function<void(bool)> onFinished = {});
    // After a successful sign-in: refreshes the accounts and selects the account (a scan).
    void completeConnectAfterGuided(const std::string& remoteID);
    // Starts the web helper for an account and shows its sheet (webConfigURL).
    void openFullWebConfigOnly(const ProviderRef& provider);
    void presentEmbeddedWebConfigPanel(const ProviderRef& provider);
    // Closes the web helper's sheet and stops the helper (it must not outlive its use).
    void dismissWebConfigSheet();
    void finishSetup(const ProviderRef& provider);
    void cancelSetup(const ProviderRef& provider);
    void acknowledgeOAuthBrowserOpened();
    // Whether the remote name can be used for a new account; the reason when not.
    std::optional<std::string> remoteNameProblem(const std::string& remoteName) const;

    // Ends a guided rclone step still running and stops the web helper: for removing an
    // account, and for shutting down.
    void endHelperProcesses();

private:
    // Publishes the flow's pending name and type; false (the error published, onFinished told)
    // when the name cannot be used.
    bool beginAddAccountFlow(const std::string& remoteName, const std::string& rcloneType,
                             const std::function<void(bool)>& onFinished);
    template <class Value> void publish(Value& field, Value value, PublishedField name);
    void terminateGuidedProcess();
    std::shared_ptr<RcloneGuidedProcessBox> freshProcessBox();
    void stopWebConfigServer();
    std::optional<std::string> startWebConfigServer(std::string& failure);
    void resetAddAccountFields();
    void runGuidedConnect(const ProviderRef& provider, bool reconnect,
                          std::function<void(bool)> onFinished);
    void applyNativeCredentials(
        const std::string& remoteName,
        std::function<void(const RcloneAdapter&, SettingsStore&, std::stop_token)> apply,
        std::function<void(bool)> onFinished);
    void refreshThenSelect(const std::string& remoteID);
    void loadBackends();
    // Runs `configure` for a new remote on a task (the sheet's sign-in and generated forms)
    // and ends the flow with its outcome.
    void runAddAccountSetup(const std::string& remoteName,
                            std::function<RcloneGuidedSetupOutcome(
                                RcloneGuidedProcessBox&, const OAuthURLCallback&, std::stop_token)>
                                configure,
                            std::function<void(bool)> onFinished);

    ScannerViewModel& coordinator_;

    std::optional<std::string> webConfigURL_;
    bool showWebConfigSheet_ = false;
    bool isGuidedConnectRunning_ = false;
    std::optional<std::string> oauthBrowserURL_;
    std::optional<std::string> mainFlowSignInURL_;
    std::optional<std::string> addAccountWebURL_;
    bool isPresentingAddAccount_ = false;
    bool addAccountGuidedRunning_ = false;
    std::optional<std::string> addAccountError_;
    std::optional<std::string> addAccountSignInURL_;
    std::optional<std::string> addAccountPendingRemoteName_;
    std::optional<std::string> addAccountPendingRcloneType_;
    std::optional<NativeCredentialOnboardingKind> addAccountPendingNativeKind_;
    std::shared_ptr<const RcloneBackendList> rcloneBackends_;
    bool loadingBackends_ = false;

    std::shared_ptr<RcloneGuidedProcessBox> guidedProcessBox_;
    // The process box of the guided connect that set isGuidedConnectRunning_.
    std::shared_ptr<RcloneGuidedProcessBox> guidedConnectBox_;
    std::unique_ptr<RcloneWebConfigServer> webConfigServer_;
    // A remote the add-account flow created and has not finished; deleted on cancel.
    std::optional<std::string> addAccountCreatedRemote_;
};

} // namespace brimvale
