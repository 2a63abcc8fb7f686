#include "core/cleanup/CloudDeletion.h"

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/RcloneRunner.h"
#include "core/rclone/Utf8Text.h"
#include "core/support/ScanDiagnostics.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

namespace brimvale {
namespace {

struct KnownTrash {
    std::string_view type;
    ProviderTrash trash;
    std::string_view name;
};

constexpr std::array kKnownTrash{
    KnownTrash{"drive", ProviderTrash::keeps, "Google Drive"},
    KnownTrash{"box", ProviderTrash::keepsForAWhile, "Box"},
    KnownTrash{"pcloud", ProviderTrash::keepsForAWhile, "pCloud"},
    KnownTrash{"onedrive", ProviderTrash::keepsForAWhile, "OneDrive"},
    KnownTrash{"dropbox", ProviderTrash::keepsForAWhile, "Dropbox"},
    KnownTrash{"jottacloud", ProviderTrash::keepsForAWhile, "Jottacloud"},
    KnownTrash{"mega", ProviderTrash::keepsForAWhile, "MEGA"},
    KnownTrash{"s3", ProviderTrash::none, "S3 storage"},
    KnownTrash{"gcs", ProviderTrash::none, "Google Cloud Storage"},
    KnownTrash{"azureblob", ProviderTrash::none, "Azure Blob Storage"},
    KnownTrash{"b2", ProviderTrash::none, "Backblaze B2"},
    KnownTrash{"sftp", ProviderTrash::none, "An SFTP server"},
    KnownTrash{"ftp", ProviderTrash::none, "An FTP server"},
    KnownTrash{"webdav", ProviderTrash::none, "A WebDAV server"},
    KnownTrash{"local", ProviderTrash::none, "This computer"},
};

const KnownTrash* known(std::string_view type) {
    for (const auto& entry : kKnownTrash) {
        if (entry.type == type) {
            return &entry;
        }
    }
    return nullptr;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\r' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace

ProviderTrash providerTrash(std::string_view rcloneType) {
    const KnownTrash* entry = known(rcloneType);
    return entry == nullptr ? ProviderTrash::unknown : entry->trash;
}

std::string providerTrashSentence(std::string_view rcloneType) {
    const KnownTrash* entry = known(rcloneType);
    if (entry == nullptr) {
        return "This provider may not keep a trash: deleted items may be gone for good.";
    }
    const std::string name(entry->name);
    switch (entry->trash) {
    case ProviderTrash::keeps:
        return name + " keeps deleted items in its trash.";
    case ProviderTrash::keepsForAWhile:
        return name + " keeps deleted items for a while, and they can be restored there.";
    case ProviderTrash::none:
        return entry->type == "b2"
                   ? name + " keeps no trash: deleted items are gone unless the bucket keeps "
                            "old versions."
                   : name + " keeps no trash: deleted items are gone for good.";
    case ProviderTrash::unknown:
        break;
    }
    return {};
}

std::vector<std::string> cloudDeletionArguments(const std::string& target, bool isFolder) {
    return {isFolder ? "purge" : "deletefile", "--", target};
}

std::vector<DeletionFailure> failuresInDeletionLog(std::string_view standardError) {
    constexpr std::string_view kError = "ERROR : ";
    std::vector<DeletionFailure> failures;
    std::set<std::string> seen;
    while (!standardError.empty()) {
        const auto end = standardError.find('\n');
        std::string_view line = standardError.substr(0, end);
        standardError.remove_prefix(end == std::string_view::npos ? standardError.size() : end + 1);
        const auto at = line.find(kError);
        if (at == std::string_view::npos) {
            continue;
        }
        line.remove_prefix(at + kError.size());
        const auto colon = line.find(": ");
        const std::string_view subject =
            line.substr(0, colon == std::string_view::npos ? 0 : colon);
        if (subject.empty() || subject.starts_with("Attempt ") ||
            subject.starts_with("Failed to")) {
            continue; // a line about the run, not an item
        }
        std::string location(trimmed(line.substr(0, colon)));
        if (location.empty() || !seen.insert(location).second) {
            continue;
        }
        failures.push_back({std::move(location), std::string(trimmed(line.substr(colon + 2)))});
    }
    return failures;
}

std::vector<DeletionFailure> deleteCloudItem(const RcloneRunner& runner,
                                             const std::string& accountLabel,
                                             const std::string& target, bool isFolder,
                                             std::stop_token stopToken) {
    ScanDiagnostics::log("cloud deletion start " + target + (isFolder ? " (folder)" : " (file)"));
    const StreamedRcloneRun run = runner.runRcloneStreaming(
        cloudDeletionArguments(target, isFolder), [](std::string_view) {}, stopToken);
    if (run.exitStatus == 0) {
        ScanDiagnostics::log("cloud deletion done " + target);
        return {};
    }
    const std::string standardError = Utf8Text::decodeLossy(run.standardError);
    ScanDiagnostics::log("cloud deletion failed " + target +
                         " exit=" + std::to_string(run.exitStatus));
    std::vector<DeletionFailure> failures = failuresInDeletionLog(standardError);
    // A purge that got going names the items it could not delete; a run that failed as a
    // whole names the target itself, or nothing.
    const bool namesItemsBelow =
        isFolder && !failures.empty() &&
        std::none_of(failures.begin(), failures.end(), [](const DeletionFailure& failure) {
            return failure.reason.find("not found") != std::string::npos;
        });
    if (!namesItemsBelow) {
        throw BrimvaleError::scanFailed(accountLabel, standardError.empty()
                                                          ? "exit " + std::to_string(run.exitStatus)
                                                          : standardError);
    }
    return failures;
}

} // namespace brimvale
