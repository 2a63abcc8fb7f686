#include "core/rclone/RcloneAdapter.h"

#include "core/persistence/settings/ScanUISettings.h"
#include "core/persistence/settings/SettingsKeys.h"
#include "core/rclone/BrimvaleError.h"
#include "core/rclone/GCSScanSettings.h"
#include "core/rclone/ObjectStorageScanPrefix.h"
#include "core/rclone/RcloneListingMerge.h"
#include "core/rclone/RcloneListingParser.h"
#include "core/rclone/RcloneListingPrefetch.h"
#include "core/rclone/RcloneProcessLog.h"
#include "core/rclone/RcloneProviderType.h"
#include "core/rclone/RcloneRemoteControl.h"
#include "core/rclone/RcloneStreamedScan.h"
#include "core/rclone/RcloneTreeScan.h"
#include "core/rclone/Utf8Text.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/SettingsStore.h"
#include "core/support/Task.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace brimvale {
namespace {

// The path of a listed folder as scan trees write it: "/" for the top, "/a/b" below.
std::string treePath(std::string_view remotePath) {
    while (remotePath.starts_with('/')) {
        remotePath.remove_prefix(1);
    }
    while (remotePath.ends_with('/')) {
        remotePath.remove_suffix(1);
    }
    return "/" + std::string(remotePath);
}

bool isAWSEndpoint(const RemoteConfigSection& section) {
    const auto provider = section.find("provider");
    if (provider != section.end() && !provider->second.empty() &&
        Utf8Text::asciiLowercased(Utf8Text::trimWhitespaceAndNewlines(provider->second)) != "aws") {
        return false;
    }
    const auto endpoint = section.find("endpoint");
    return endpoint == section.end() || endpoint->second.empty() ||
           Utf8Text::containsIgnoringCase(endpoint->second, "amazonaws.com");
}

} // namespace

bool parseBackendListsRecursively(std::string_view featuresJSON) {
    const auto document = nlohmann::json::parse(featuresJSON, nullptr, false);
    if (!document.is_object()) {
        return false;
    }
    const auto features = document.find("Features");
    if (features == document.end() || !features->is_object()) {
        return false;
    }
    const auto listR = features->find("ListR");
    return listR != features->end() && listR->is_boolean() && listR->get<bool>();
}

RcloneAdapter::RcloneAdapter(std::string remoteID, std::string displayName,
                             RcloneAdapterOptions options)
    : remoteID_(std::move(remoteID))
    , displayName_(std::move(displayName))
    , options_(std::move(options)) {}

bool RcloneAdapter::isConfigured(std::stop_token stopToken) {
    if (options_.configSection) {
        return true;
    }
    return configDumpDictionary(std::move(stopToken)).contains(remoteID_);
}

std::vector<std::string> RcloneAdapter::recursiveLsjsonArguments(const std::string& target,
                                                                 bool fastList) const {
    std::vector<std::string> arguments{"lsjson", "-R"};
    if (fastList) {
        arguments.emplace_back("--fast-list");
    }
    for (auto& flag : extraLsjsonFlags()) {
        arguments.push_back(std::move(flag));
    }
    arguments.emplace_back("--checkers");
    arguments.push_back(std::to_string(std::max(1, ScanUISettings::cloudListingCheckers.load())));
    arguments.emplace_back("--");
    arguments.push_back(target);
    return arguments;
}

bool RcloneAdapter::backendListsRecursively(std::stop_token stopToken) const {
    const std::string key = SettingsKeys::recursiveListingFeature(remoteID_);
    const std::string type = rcloneType();
    if (options_.settings) {
        if (const auto stored = options_.settings->stringValue(key)) {
            if (*stored == type + "=yes") {
                return true;
            }
            if (*stored == type + "=no") {
                return false;
            }
        }
    }
    bool listsRecursively = false;
    try {
        const std::string answer = options_.runner.runRclone(
            {"backend", "features", "--", remoteID_ + ":"}, displayName_, stopToken);
        listsRecursively = parseBackendListsRecursively(answer);
    } catch (const CancellationError&) {
        throw;
    } catch (const std::exception& error) {
        // The listing itself will say what is wrong, if anything; one folder at a time is
        // always possible.
        ScanDiagnostics::log("backend features unavailable remote=" + remoteID_ + ": " +
                             error.what());
        return false;
    }
    if (options_.settings) {
        options_.settings->setString(key, type + (listsRecursively ? "=yes" : "=no"));
    }
    return listsRecursively;
}

std::vector<std::string> RcloneAdapter::lsjsonArguments(const std::string& target) const {
    std::vector<std::string> arguments{"lsjson"};
    if (useFastListForRecursiveScan()) {
        arguments.emplace_back("--fast-list");
    }
    for (auto& flag : extraLsjsonFlags()) {
        arguments.push_back(std::move(flag));
    }
    arguments.push_back(target);
    return arguments;
}

std::vector<RcloneEntry> RcloneAdapter::listEntries(const std::string& target,
                                                    std::stop_token stopToken) const {
    const std::string output = options_.runner.runRcloneCollectingStdout(
        lsjsonArguments(target), displayName_, std::move(stopToken));
    return parseJSON(output, target);
}

std::vector<FileNodeRef> RcloneAdapter::listDirectory(const std::string& path,
                                                      std::stop_token stopToken) {
    const std::string target = remoteID_ + ":" + path;
    const auto entries = listEntries(target, std::move(stopToken));
    const FileNodeRef folder =
        FileNode::make({.name = std::string(), .path = treePath(path), .isDirectory = true});
    mergeListingEntries(entries, *folder, {target, remoteID_, 0});
    // The children outlive the temporary folder, which clears their parent links as it goes.
    return folder->children();
}

FileNodeRef RcloneAdapter::scan(const ScanParameters& parameters) {
    if (!parameters.listOneFolderAtATime) {
        const std::string target = remoteID_ + ":" + parameters.path;
        const std::vector<std::string> arguments =
            recursiveLsjsonArguments(target, backendListsRecursively(parameters.stopToken));
        RcloneStreamedScan scan(
            remoteID_,
            {.run =
                 [this, arguments](const std::function<void(std::string_view)>& onOutput,
                                   std::stop_token stopToken) {
                     if (auto early = RcloneListingPrefetch::shared().takeAndRun(
                             arguments, onOutput, stopToken)) {
                         return std::move(*early);
                     }
                     return options_.runner.runRcloneStreaming(arguments, onOutput,
                                                               std::move(stopToken));
                 },
             .target = target,
             .remoteLabelForErrors = displayName_},
            parameters);
        return scan.run();
    }
    RcloneTreeScan scan(
        remoteID_,
        [this](const std::string& target, std::stop_token stopToken) {
            return listEntries(target, std::move(stopToken));
        },
        parameters);
    return scan.run();
}

std::optional<std::string> RcloneAdapter::webURL(const FileNode& node) const {
    return RemoteWebURL::url(rcloneType(), node, webContext());
}

std::optional<std::int64_t> RcloneAdapter::totalOccupiedBytesForScanPath(const std::string&,
                                                                         std::stop_token) {
    return std::nullopt;
}

RemoteWebContext RcloneAdapter::webContext() const {
    RemoteWebContext context;
    const std::string type = rcloneType();
    if (options_.settings) {
        if (type == "s3") {
            context.scanRootBucket =
                ObjectStorageScanPrefix::storedS3Bucket(*options_.settings, remoteID_);
        } else if (type == "gcs") {
            context.scanRootBucket = GCSScanSettings::storedBucket(*options_.settings, remoteID_);
        }
    }
    if (options_.configSection) {
        context.s3EndpointIsAWS = isAWSEndpoint(*options_.configSection);
    }
    return context;
}

std::string RcloneAdapter::rclone(const std::vector<std::string>& arguments,
                                  std::stop_token stopToken) const {
    return options_.runner.runRclone(arguments, displayName_, std::move(stopToken));
}

RcloneConfigDump RcloneAdapter::configDumpDictionary(std::stop_token stopToken) const {
    return parseConfigDump(rclone({"config", "dump"}, std::move(stopToken)));
}

std::vector<ConfiguredRemote> RcloneAdapter::remotesFromConfig(std::stop_token stopToken) const {
    return configuredRemotes(configDumpDictionary(std::move(stopToken)));
}

void RcloneAdapter::ensureRemoteStubExists(const std::string& remoteName,
                                           const std::string& rcloneType,
                                           std::stop_token stopToken) const {
    const auto dump = configDumpDictionary(stopToken);
    const auto section = dump.find(remoteName);
    if (section == dump.end()) {
        options_.runner.runRclone(
            {"config", "create", "--non-interactive", "--", remoteName, rcloneType}, remoteName,
            std::move(stopToken));
        return;
    }
    const auto type = section->second.find("type");
    if (type == section->second.end() ||
        RcloneProviderType::canonical(type->second) != rcloneType) {
        options_.runner.runRclone(
            {"config", "update", "--non-interactive", "--", remoteName, "type", rcloneType},
            remoteName, std::move(stopToken));
    }
}

std::string
RcloneAdapter::writeRemoteSettings(const std::string& remoteName, const std::string& rcloneType,
                                   const std::vector<std::pair<std::string, std::string>>& settings,
                                   const std::vector<std::string>& secrets,
                                   std::stop_token stopToken) const {
    const auto dump = configDumpDictionary(stopToken);
    const auto section = dump.find(remoteName);
    const bool creating = section == dump.end();
    nlohmann::json parameters = nlohmann::json::object();
    for (const auto& [key, value] : settings) {
        parameters[key] = value;
    }
    if (!creating) {
        const auto type = section->second.find("type");
        if (type == section->second.end() ||
            RcloneProviderType::canonical(type->second) != rcloneType) {
            parameters["type"] = rcloneType;
        }
    }
    nlohmann::json request{{"name", remoteName},
                           {"parameters", parameters},
                           {"opt", {{"obscure", true}, {"nonInteractive", true}}}};
    if (creating) {
        request["type"] = rcloneType;
    }
    std::string body;
    try {
        body = request.dump();
    } catch (const nlohmann::json::exception&) {
        throw BrimvaleError::scanFailed(remoteName, "a setting is not valid UTF-8 text");
    }
    RcloneRemoteControl control(options_.runner, remoteName, stopToken);
    try {
        return control.call(creating ? "config/create" : "config/update", body, secrets, stopToken);
    } catch (...) {
        if (creating) {
            // rclone keeps the section it began even when it refuses the rest, and saves it with
            // its next change; it is deleted through the same server, whose copy of the
            // configuration is the one that gets saved.
            try {
                control.call("config/delete", nlohmann::json{{"name", remoteName}}.dump(), secrets);
            } catch (const std::exception& error) {
                RcloneProcessLog::debug("could not delete the refused remote " + remoteName + ": " +
                                        error.what());
            }
        }
        throw;
    }
}

void RcloneAdapter::deleteRemote(const std::string& remoteName, std::stop_token stopToken) const {
    options_.runner.runRclone({"config", "delete", "--", remoteName}, remoteName,
                              std::move(stopToken));
}

std::vector<std::string>
RcloneAdapter::deleteRemotesWithNamePrefix(const std::string& prefix,
                                           std::stop_token stopToken) const {
    std::vector<std::string> deleted;
    for (const auto& [name, section] : configDumpDictionary(stopToken)) {
        if (name.starts_with(prefix)) {
            deleteRemote(name, stopToken);
            deleted.push_back(name);
        }
    }
    return deleted;
}

} // namespace brimvale
