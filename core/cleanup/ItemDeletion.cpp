#include "core/cleanup/ItemDeletion.h"

#include "core/cleanup/CloudDeletion.h"
#include "core/model/FileNode.h"
#include "core/rclone/BrimvaleError.h"
#include "core/rclone/ScanErrorInfo.h"
#include "core/support/SaturatingAdd.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/Task.h"

#include <cerrno>
#include <sys/stat.h>

namespace brimvale {
namespace {

// "bucket" + "/a/b" is "bucket/a/b"; "" + "/a/b" is "a/b".
std::string remotePath(std::string base, std::string_view treePath) {
    while (treePath.starts_with('/')) {
        treePath.remove_prefix(1);
    }
    while (base.ends_with('/')) {
        base.pop_back();
    }
    if (base.empty()) {
        return std::string(treePath);
    }
    return treePath.empty() ? base : base + "/" + std::string(treePath);
}

const char* methodName(DeletionMethod method) {
    switch (method) {
    case DeletionMethod::moveToTrash:
        return "trash";
    case DeletionMethod::deletePermanently:
        return "permanent";
    case DeletionMethod::deleteFromCloud:
        return "cloud";
    }
    return "?";
}

// The folder's modification time now, for the tree.
void noteFolderChange(DeletionReport& report, const DeletionItem& item,
                      const CheckedLocalItem& checked) {
    struct stat status {};
    if (::fstat(checked.folder.get(), &status) != 0) {
        return;
    }
    const auto slash = item.treePath.rfind('/');
    report.changedFolders.emplace_back(
        slash == std::string::npos ? std::string() : item.treePath.substr(0, slash),
        Date::fromUnixSeconds(static_cast<double>(status.st_mtim.tv_sec) +
                              static_cast<double>(status.st_mtim.tv_nsec) * 1e-9));
}

bool stillThere(const std::string& location) {
    struct stat status {};
    return ::lstat(location.c_str(), &status) == 0 || errno != ENOENT;
}

} // namespace

DeletionItem deletionItem(const FileNode& node, bool isLocal, const std::string& accountID,
                          const std::string& scanRoot) {
    const std::string path = node.path();
    return DeletionItem{.treePath = path,
                        .location =
                            isLocal ? "/" + path : accountID + ":" + remotePath(scanRoot, path),
                        .isDirectory = node.isDirectory(),
                        .size = node.size(),
                        .itemCount = node.subtreeNodeCount(),
                        .modifiedDate = node.modifiedDate()};
}

DeletionReport runDeletion(const DeletionRequest& request, std::stop_token stopToken,
                           const std::function<void(const DeletionProgress&)>& onProgress) {
    DeletionReport report;
    DeletionProgress progress{.itemsTotal = request.items.size()};
    const auto tell = [&] {
        if (onProgress) {
            onProgress(progress);
        }
    };
    const auto gone = [&](const DeletionItem& item) {
        report.deleted.push_back(item.treePath);
        report.bytesFreed = saturatingAdd(report.bytesFreed, item.size);
        ScanDiagnostics::log(std::string("deletion (") + methodName(request.method) + ") removed " +
                             item.location);
    };
    for (std::size_t index = 0; index < request.items.size(); ++index) {
        const DeletionItem& item = request.items[index];
        if (stopToken.stop_requested()) {
            report.stopped = true;
            for (std::size_t rest = index; rest < request.items.size(); ++rest) {
                report.failures.push_back({request.items[rest].location, "not reached: stopped"});
            }
            break;
        }
        progress.itemsDone = index;
        progress.current = item.location;
        tell();
        if (request.method == DeletionMethod::deleteFromCloud) {
            try {
                auto failures = deleteCloudItem(request.runner, request.accountLabel, item.location,
                                                item.isDirectory, stopToken);
                if (failures.empty()) {
                    gone(item);
                } else {
                    report.partlyDeleted.push_back(item.treePath);
                    report.failures.insert(report.failures.end(), failures.begin(), failures.end());
                }
            } catch (const CancellationError&) {
                ScanDiagnostics::log("cloud deletion stopped " + item.location);
                report.stopped = true;
                if (item.isDirectory) {
                    report.partlyDeleted.push_back(item.treePath);
                }
                report.failures.push_back({item.location, "stopped; part of it may be gone"});
                for (std::size_t rest = index + 1; rest < request.items.size(); ++rest) {
                    report.failures.push_back(
                        {request.items[rest].location, "not reached: stopped"});
                }
                break;
            } catch (const BrimvaleError& error) {
                ScanDiagnostics::log("cloud deletion failed " + item.location + ": " +
                                     error.description());
                report.failures.push_back(
                    {item.location, ScanErrorInfo::compactUserMessage(error.description())});
            }
            continue;
        }
        try {
            const CheckedLocalItem checked =
                checkLocalItem(request.scanRoot, {.location = item.location,
                                                  .isDirectory = item.isDirectory,
                                                  .size = item.size,
                                                  .modifiedDate = item.modifiedDate});
            if (request.method == DeletionMethod::moveToTrash) {
                moveLocalItemToTrash(checked);
                gone(item);
                noteFolderChange(report, item, checked);
                continue;
            }
            const RemovalOutcome outcome =
                removeLocalItemPermanently(checked, stopToken, [&](std::int64_t removed) {
                    progress.entriesRemoved = removed;
                    tell();
                });
            progress.entriesRemoved = 0;
            noteFolderChange(report, item, checked);
            if (outcome.itemGone()) {
                gone(item);
                continue;
            }
            ScanDiagnostics::log("deletion (permanent) incomplete " + item.location + ": " +
                                 std::to_string(outcome.failures.size()) + " left" +
                                 (outcome.stopped ? ", stopped" : ""));
            report.failures.insert(report.failures.end(), outcome.failures.begin(),
                                   outcome.failures.end());
            if (!stillThere(item.location)) {
                gone(item);
            } else if (item.isDirectory) {
                report.partlyDeleted.push_back(item.treePath);
            }
            if (outcome.stopped) {
                report.stopped = true;
                report.failures.push_back({item.location, "stopped; part of it is gone"});
                for (std::size_t rest = index + 1; rest < request.items.size(); ++rest) {
                    report.failures.push_back(
                        {request.items[rest].location, "not reached: stopped"});
                }
                break;
            }
        } catch (const DeletionRefused& refused) {
            report.failures.push_back({item.location, refused.what()});
        }
    }
    for (const auto& failure : report.failures) {
        ScanDiagnostics::log("not deleted " + failure.location + ": " + failure.reason);
    }
    progress.itemsDone = request.items.size();
    progress.current.clear();
    tell();
    return report;
}

} // namespace brimvale
