#pragma once

#include "core/onboarding/OAuthContinueOutputSink.h"
#include "core/onboarding/RcloneConfigResponseJSON.h"
#include "core/onboarding/RcloneGuidedProcessBox.h"
#include "core/rclone/RcloneRunner.h"

#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

enum class RcloneGuidedSetupOutcome {
    completed,                 // the remote is usable
    needsInteractiveWebConfig, // the protocol ended but the remote holds no token: offer the
                               // web configuration helper (RcloneWebConfigServer)
};

// Creates or repairs an rclone remote without a terminal by driving rclone's non-interactive
// configuration protocol: `rclone config create|update … --non-interactive` prints one JSON
// question at a time, each answered from the question's own defaults by starting rclone again
// with `--continue --state … --result …`. The only step that needs the user is the OAuth
// sign-in: its local authorisation address, read from rclone's standard error, goes to
// `onOAuthURL` (open it in the browser); rclone ends the step itself when the provider
// redirects back to it.
//
// Failures are BrimvaleError (rcloneNotInstalled, remoteNotConfigured, scanFailed with the
// texts below; ScanErrorInfo::addAccountFlowMessage makes the user's text), std::system_error
// when rclone cannot be started, std::runtime_error("Could not find rclone config file path.").
// Cancellation: a step ended through the process box fails like any step that exits non-zero
// (scanFailed with its standard error or "exit N"); a box terminated before a step starts, or
// a stopped `stopToken`, gives CancellationError. A failure leaves whatever rclone wrote to
// its configuration in place; Reconnect repairs it.
//
// Steps run their own children (standard input from the null device, so nothing can wait on a
// terminal), not through the run queue: an OAuth step may wait minutes for the user.
//
// Thread safety: const operations of an immutable object; call them from a background thread
// (they block until rclone is done, the OAuth step until the sign-in ends). `onOAuthURL` is
// called on that thread, at most once per OAuth step.
class RcloneGuidedSetup {
public:
    // rclone is found and run as `runner` says (search places, environment, grace period).
    explicit RcloneGuidedSetup(RcloneRunner runner = RcloneRunner());

    // For a new account, or an existing one of the same type: `config create` when the remote
    // is absent, `config update` when it exists with `rcloneType`; the OAuth template keys of
    // its section are removed first. A remote of another type fails with scanFailed
    // 'Remote "<name>" exists with type "<type>", expected "<rcloneType>".'.
    RcloneGuidedSetupOutcome configureIfPossible(const std::string& remoteName,
                                                 const std::string& rcloneType,
                                                 RcloneGuidedProcessBox& processBox,
                                                 const OAuthURLCallback& onOAuthURL,
                                                 std::stop_token stopToken = {}) const;

    // Goes on from rclone's reply to a remote written through its remote control
    // (RcloneAdapter::writeRemoteSettings): `completed` when it asked nothing, otherwise its
    // questions are answered as configureIfPossible answers them (the sign-in included).
    RcloneGuidedSetupOutcome
    continueConfiguration(const std::string& remoteName, const std::string& rcloneType,
                          const std::string& reply, RcloneGuidedProcessBox& processBox,
                          const OAuthURLCallback& onOAuthURL, std::stop_token stopToken = {}) const;

    // For Reconnect on an existing account: `config update`. A missing remote fails with
    // remoteNotConfigured, one of another type with scanFailed "Account type mismatch for this
    // connection.".
    RcloneGuidedSetupOutcome reconnectRemote(const std::string& remoteName,
                                             const std::string& rcloneType,
                                             RcloneGuidedProcessBox& processBox,
                                             const OAuthURLCallback& onOAuthURL,
                                             std::stop_token stopToken = {}) const;

    // `completed` for the types in tokenlessProviderTypes() without asking rclone; otherwise
    // whether `rclone config show <remoteName>` prints "token =".
    RcloneGuidedSetupOutcome verifyTokenOrNeedsWebUI(const std::string& remoteName,
                                                     const std::string& rcloneType,
                                                     RcloneGuidedProcessBox& processBox,
                                                     std::stop_token stopToken = {}) const;

    // The configuration file's path, from `rclone config paths`.
    std::string resolveRcloneConfigURL(RcloneGuidedProcessBox& processBox,
                                       std::stop_token stopToken = {}) const;

    // The answer given to a question, or nothing when it needs the user: client_id and
    // client_secret are left empty (rclone's own application credentials) unless required;
    // config_is_local is "true" (the local OAuth flow); a question whose help mentions editing
    // the advanced config is declined; otherwise the default ("false" for a bool without one,
    // "" for an optional text without one). `rcloneType` is the remote's type.
    static std::optional<std::string> pickAnswer(const RcloneConfigOptionJSON& option,
                                                 std::string_view rcloneType);

    // The types whose remotes never hold a token: exactly "local".
    static const std::set<std::string, std::less<>>& tokenlessProviderTypes();

private:
    struct Session;

    // The type of the configured remote named `remoteName`, or nothing when there is none.
    std::optional<std::string> configuredType(const std::string& remoteName,
                                              std::stop_token stopToken) const;
    std::string runStep(const Session& session, const std::vector<std::string>& arguments,
                        OAuthContinueOutputSink* oauthSink) const;
    std::string runConfigSimple(const Session& session,
                                const std::vector<std::string>& arguments) const;
    std::string runOAuthContinueStep(const Session& session, const std::string& state,
                                     const std::string& result) const;
    RcloneGuidedSetupOutcome processConfigJSONFlow(const Session& session,
                                                   std::string firstStdout) const;
    std::string requireRclonePath() const;

    RcloneRunner runner_;
};

} // namespace brimvale
