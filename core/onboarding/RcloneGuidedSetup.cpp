#include "core/onboarding/RcloneGuidedSetup.h"

#include "core/onboarding/RcloneOAuthBranding.h"
#include "core/rclone/BrimvaleError.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/RcloneLogMasking.h"
#include "core/rclone/RcloneProcessLog.h"
#include "core/rclone/Utf8Text.h"
#include "core/support/Task.h"

namespace brimvale {

struct RcloneGuidedSetup::Session {
    std::string rclonePath;
    std::string remoteName;
    std::string rcloneType;
    RcloneGuidedProcessBox& processBox;
    const OAuthURLCallback& onOAuthURL;
    std::stop_token stopToken;
};

namespace {

const OAuthURLCallback kNoOAuthCallback;

std::vector<std::string> continueArguments(const std::string& remoteName, const std::string& state,
                                           const std::string& result) {
    // State and result are rclone's own texts and may begin with "-": every flag comes before
    // "--", which ends them.
    return {"config",     "update",           "--non-interactive",
            "--continue", "--state=" + state, "--result=" + result,
            "--",         remoteName};
}

} // namespace

RcloneGuidedSetup::RcloneGuidedSetup(RcloneRunner runner)
    : runner_(std::move(runner)) {}

const std::set<std::string, std::less<>>& RcloneGuidedSetup::tokenlessProviderTypes() {
    static const std::set<std::string, std::less<>> types{"local"};
    return types;
}

std::optional<std::string> RcloneGuidedSetup::pickAnswer(const RcloneConfigOptionJSON& option,
                                                         std::string_view) {
    if (option.name == "client_id" || option.name == "client_secret") {
        if (option.required) {
            return std::nullopt;
        }
        return std::string();
    }
    if (option.name == "config_is_local") {
        return "true";
    }
    const bool isBool = option.type == "bool";
    if (Utf8Text::containsIgnoringCase(option.help, "edit advanced config") &&
        (isBool || option.exclusive)) {
        return "false";
    }
    if (!option.defaultStr.empty()) {
        return option.defaultStr;
    }
    if (isBool) {
        return "false";
    }
    if (option.required) {
        return std::nullopt;
    }
    return std::string();
}

std::string RcloneGuidedSetup::requireRclonePath() const {
    auto path = runner_.resolveRclonePath();
    if (!path) {
        throw BrimvaleError::rcloneNotInstalled();
    }
    return std::move(*path);
}

std::optional<std::string> RcloneGuidedSetup::configuredType(const std::string& remoteName,
                                                             std::stop_token stopToken) const {
    const GenericRcloneAdapter configuration(remoteName, "", remoteName, {.runner = runner_});
    for (auto& remote : configuration.remotesFromConfig(std::move(stopToken))) {
        if (remote.name == remoteName) {
            return std::move(remote.type);
        }
    }
    return std::nullopt;
}

std::string RcloneGuidedSetup::runStep(const Session& session,
                                       const std::vector<std::string>& arguments,
                                       OAuthContinueOutputSink* oauthSink) const {
    throwIfCancelled(session.stopToken);
    RcloneProcessLog::debug("rclone config step args=" + argumentsForLog(arguments));
    const auto process =
        session.processBox.launch({.executable = session.rclonePath,
                                   .arguments = arguments,
                                   .environmentChanges = runner_.options().environmentChanges,
                                   .killGracePeriod = runner_.options().killGracePeriod,
                                   .standardInput = ChildStandardInput::nullDevice});
    ChildProcessResult result;
    {
        const std::stop_callback onStop(session.stopToken, [&process] { process->terminate(); });
        ChildOutputObserver observer;
        if (oauthSink != nullptr) {
            observer = [oauthSink](ChildOutputStream stream, std::string_view chunk) {
                if (stream == ChildOutputStream::standardError) {
                    oauthSink->appendStandardError(chunk);
                }
            };
        }
        try {
            result = process->collectOutputAndWait(observer);
            if (oauthSink != nullptr) {
                oauthSink->finish();
            }
        } catch (...) {
            // The caller's callback failed: the step must not outlive this call (an OAuth step
            // would keep rclone's sign-in port).
            process->terminate();
            process->collectOutputAndWait();
            throw;
        }
    }
    RcloneProcessLog::debug("rclone config step exit=" + std::to_string(result.exitStatus));
    throwIfCancelled(session.stopToken);
    if (result.exitStatus != 0) {
        std::string standardError = Utf8Text::decodeLossy(result.standardError);
        throw BrimvaleError::scanFailed(
            session.remoteName, standardError.empty() ? "exit " + std::to_string(result.exitStatus)
                                                      : std::move(standardError));
    }
    return std::move(result.standardOutput);
}

std::string RcloneGuidedSetup::runConfigSimple(const Session& session,
                                               const std::vector<std::string>& arguments) const {
    return runStep(session, arguments, nullptr);
}

std::string RcloneGuidedSetup::runOAuthContinueStep(const Session& session,
                                                    const std::string& state,
                                                    const std::string& result) const {
    OAuthContinueOutputSink sink(session.onOAuthURL);
    return runStep(session, continueArguments(session.remoteName, state, result), &sink);
}

RcloneGuidedSetupOutcome RcloneGuidedSetup::processConfigJSONFlow(const Session& session,
                                                                  std::string output) const {
    // rclone's own state machine ends the loop; every turn is one child run.
    for (;;) {
        const RcloneConfigResponseJSON response =
            parseRcloneConfigResponse(output, session.remoteName);
        if (!response.error.empty()) {
            throw BrimvaleError::scanFailed(session.remoteName, response.error);
        }
        if (!response.option) {
            if (response.state.empty()) {
                return verifyTokenOrNeedsWebUI(session.remoteName, session.rcloneType,
                                               session.processBox, session.stopToken);
            }
            throw BrimvaleError::scanFailed(session.remoteName,
                                            "Unexpected configuration response.");
        }
        const auto answer = pickAnswer(*response.option, session.rcloneType);
        if (!answer) {
            throw BrimvaleError::scanFailed(session.remoteName, "Missing configuration step.");
        }
        if (response.option->name == "config_is_local" && *answer == "true") {
            output = runOAuthContinueStep(session, response.state, *answer);
        } else {
            output = runConfigSimple(
                session, continueArguments(session.remoteName, response.state, *answer));
        }
    }
}

RcloneGuidedSetupOutcome RcloneGuidedSetup::verifyTokenOrNeedsWebUI(
    const std::string& remoteName, const std::string& rcloneType,
    RcloneGuidedProcessBox& processBox, std::stop_token stopToken) const {
    if (tokenlessProviderTypes().contains(rcloneType)) {
        return RcloneGuidedSetupOutcome::completed;
    }
    const Session session{requireRclonePath(), remoteName,       rcloneType,
                          processBox,          kNoOAuthCallback, std::move(stopToken)};
    // Deliberately textual, on the INI rendering of the remote.
    const std::string shown = runConfigSimple(session, {"config", "show", remoteName});
    return shown.find("token =") != std::string::npos
               ? RcloneGuidedSetupOutcome::completed
               : RcloneGuidedSetupOutcome::needsInteractiveWebConfig;
}

std::string RcloneGuidedSetup::resolveRcloneConfigURL(RcloneGuidedProcessBox& processBox,
                                                      std::stop_token stopToken) const {
    const Session session{requireRclonePath(), "rclone configuration", "",
                          processBox,          kNoOAuthCallback,       std::move(stopToken)};
    return RcloneOAuthBranding::configPathFromPathsOutput(
        runConfigSimple(session, {"config", "paths"}));
}

RcloneGuidedSetupOutcome RcloneGuidedSetup::configureIfPossible(const std::string& remoteName,
                                                                const std::string& rcloneType,
                                                                RcloneGuidedProcessBox& processBox,
                                                                const OAuthURLCallback& onOAuthURL,
                                                                std::stop_token stopToken) const {
    const Session session{requireRclonePath(), remoteName, rcloneType,
                          processBox,          onOAuthURL, stopToken};
    std::vector<std::string> firstStep;
    const auto existingType = configuredType(remoteName, stopToken);
    if (!existingType) {
        firstStep = {"config", "create", "--non-interactive", "--", remoteName, rcloneType};
    } else if (*existingType == rcloneType) {
        firstStep = {"config", "update", "--non-interactive", "--", remoteName};
    } else {
        throw BrimvaleError::scanFailed(remoteName, "Remote \"" + remoteName +
                                                        "\" exists with type \"" + *existingType +
                                                        "\", expected \"" + rcloneType + "\".");
    }
    RcloneOAuthBranding::stripOAuthTemplateKeys(RcloneOAuthBranding::configPathFromPathsOutput(
                                                    runConfigSimple(session, {"config", "paths"})),
                                                remoteName);
    return processConfigJSONFlow(session, runConfigSimple(session, firstStep));
}

RcloneGuidedSetupOutcome RcloneGuidedSetup::continueConfiguration(
    const std::string& remoteName, const std::string& rcloneType, const std::string& reply,
    RcloneGuidedProcessBox& processBox, const OAuthURLCallback& onOAuthURL,
    std::stop_token stopToken) const {
    const RcloneConfigResponseJSON response = parseRcloneConfigResponse(reply, remoteName);
    if (response.error.empty() && response.state.empty() && !response.option) {
        return RcloneGuidedSetupOutcome::completed;
    }
    const Session session{requireRclonePath(), remoteName, rcloneType,
                          processBox,          onOAuthURL, std::move(stopToken)};
    return processConfigJSONFlow(session, reply);
}

RcloneGuidedSetupOutcome RcloneGuidedSetup::reconnectRemote(const std::string& remoteName,
                                                            const std::string& rcloneType,
                                                            RcloneGuidedProcessBox& processBox,
                                                            const OAuthURLCallback& onOAuthURL,
                                                            std::stop_token stopToken) const {
    const Session session{requireRclonePath(), remoteName, rcloneType,
                          processBox,          onOAuthURL, stopToken};
    const auto existingType = configuredType(remoteName, stopToken);
    if (!existingType) {
        throw BrimvaleError::remoteNotConfigured(remoteName);
    }
    if (*existingType != rcloneType) {
        throw BrimvaleError::scanFailed(remoteName, "Account type mismatch for this connection.");
    }
    return processConfigJSONFlow(
        session,
        runConfigSimple(session, {"config", "update", "--non-interactive", "--", remoteName}));
}

} // namespace brimvale
