#include "core/coordinator/AccountDirectory.h"

#include "core/onboarding/CloudServiceCatalog.h"
#include "core/rclone/RcloneProviderType.h"
#include "core/rclone/RemoteAccountLabel.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>

namespace brimvale {
namespace {

std::string lowercased(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

// Two accounts of one service signed in as one user (two WebDAV servers, two buckets with one
// key) would read the same in the sidebar; those take their remote name beside the user.
void makeSidebarLabelsDistinct(std::vector<AccountEntry>& accounts) {
    std::map<std::string, int> uses;
    for (const auto& entry : accounts) {
        ++uses[entry.displayName];
    }
    for (auto& entry : accounts) {
        if (uses[entry.displayName] < 2 || !entry.accountLabel ||
            *entry.accountLabel == entry.remoteName) {
            continue;
        }
        entry.accountLabel = *entry.accountLabel + ", " + entry.remoteName;
        entry.displayName = CloudServiceCatalog::sidebarLabel({.remoteName = entry.remoteName,
                                                               .rcloneType = entry.rcloneType,
                                                               .accountLabel = entry.accountLabel});
    }
}

} // namespace

const std::vector<std::string>& sidebarPinnedPlaceholderRcloneTypes() {
    static const std::vector<std::string> types{"local", "dropbox"};
    return types;
}

std::optional<std::string> correctedAliasedType(std::string_view configType) {
    // rclone accepts a backend under its long name as well as its short one, and its own
    // interactive configuration writes the long one.
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 3> kAliases{{
        {"google cloud storage", "gcs"},
        {"amazon cloud drive", "acd"},
        {"google photos", "gphotos"},
    }};
    const std::string lower = lowercased(RcloneProviderType::canonical(configType));
    for (const auto& [alias, type] : kAliases) {
        if (lower == alias) {
            return std::string(type);
        }
    }
    return std::nullopt;
}

bool remoteReadyForUse(std::string_view rcloneType, const RemoteConfigSection* section) {
    if (rcloneType.empty() || section == nullptr) {
        return false;
    }
    // Backends that sign in through a browser keep the result in "token".
    static const std::set<std::string, std::less<>> kBrowserSignIn{
        "drive", "dropbox", "onedrive", "box",          "pcloud",    "yandex",    "hidrive",
        "zoho",  "gphotos", "putio",    "premiumizeme", "sharefile", "jottacloud"};
    if (!kBrowserSignIn.contains(rcloneType)) {
        return true;
    }
    const auto token = section->find("token");
    return token != section->end() &&
           RcloneProviderType::canonical(token->second).find_first_not_of("{}") !=
               std::string::npos;
}

AccountDirectory readAccountDirectory(const std::vector<std::string>& remoteNames,
                                      const RcloneConfigDump& dump) {
    AccountDirectory directory;
    RemoteNameSet taken;
    std::set<std::string> typesPresent;
    for (const auto& rawName : remoteNames) {
        AccountEntry entry;
        entry.remoteName = RcloneProviderType::canonical(rawName);
        if (entry.remoteName.empty() || taken.contains(entry.remoteName)) {
            continue;
        }
        const auto section = dump.find(entry.remoteName);
        const RemoteConfigSection* settings = section == dump.end() ? nullptr : &section->second;
        if (settings != nullptr) {
            if (const auto type = settings->find("type"); type != settings->end()) {
                entry.rcloneType = RcloneProviderType::canonical(type->second);
            }
            entry.section = *settings;
        }
        if (auto corrected = correctedAliasedType(entry.rcloneType)) {
            directory.repairs.push_back({entry.remoteName, *corrected});
            entry.rcloneType = std::move(*corrected);
        }
        entry.accountLabel = RemoteAccountLabel::pick(settings, entry.remoteName, entry.rcloneType);
        entry.displayName = CloudServiceCatalog::sidebarLabel({.remoteName = entry.remoteName,
                                                               .rcloneType = entry.rcloneType,
                                                               .accountLabel = entry.accountLabel});
        entry.readyForUse = remoteReadyForUse(entry.rcloneType, settings);
        taken.insert(entry.remoteName);
        typesPresent.insert(entry.rcloneType);
        directory.accounts.push_back(std::move(entry));
    }
    makeSidebarLabelsDistinct(directory.accounts);
    for (const auto& type : sidebarPinnedPlaceholderRcloneTypes()) {
        if (typesPresent.contains(type)) {
            continue;
        }
        AccountEntry placeholder;
        placeholder.rcloneType = type;
        placeholder.remoteName =
            CloudServiceCatalog::suggestedUnusedRemoteNameForRcloneType(type, taken);
        placeholder.isPlaceholder = true;
        placeholder.displayName = CloudServiceCatalog::sidebarLabel(
            {.remoteName = placeholder.remoteName, .rcloneType = type, .isPlaceholder = true});
        taken.insert(placeholder.remoteName);
        directory.accounts.push_back(std::move(placeholder));
    }
    return directory;
}

} // namespace brimvale
