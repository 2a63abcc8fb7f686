#include "core/rclone/RcloneTreeScan.h"

#include "core/rclone/RcloneListingMerge.h"
#include "core/support/MainQueue.h"
#include "core/support/SaturatingAdd.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/Task.h"

namespace brimvale {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

} // namespace

std::string RcloneTreeScan::rootName(const std::string& path, const std::string& remoteID) {
    std::string_view name = path;
    while (name.ends_with('/')) {
        name.remove_suffix(1);
    }
    const auto slash = name.rfind('/');
    if (slash != std::string_view::npos) {
        name.remove_prefix(slash + 1);
    }
    return name.empty() ? remoteID : std::string(name);
}

RcloneTreeScan::RcloneTreeScan(std::string remoteID, ListFolder listFolder,
                               const ScanParameters& parameters)
    : remoteID_(std::move(remoteID))
    , listFolder_(std::move(listFolder))
    , parameters_(parameters) {}

std::string RcloneTreeScan::childTarget(const std::string& target, std::string_view childName) {
    // Joining "remote:" with a slash would make the path absolute ("sftp:/Photos" is the
    // server's /Photos, not Photos in the home folder).
    if (childName.empty()) {
        return target;
    }
    if (target.ends_with(':') || target.ends_with('/')) {
        return target + std::string(childName);
    }
    return target + "/" + std::string(childName);
}

template <class Work> void RcloneTreeScan::onTreeThread(Work&& work) const {
    if (parameters_.mainQueue != nullptr) {
        runOnMainAndWait(*parameters_.mainQueue, parameters_.stopToken, std::forward<Work>(work));
    } else {
        work();
    }
}

void RcloneTreeScan::throwIfCancelled(const std::string& target) const {
    if (parameters_.stopToken.stop_requested()) {
        ScanDiagnostics::log("lsjson cancelled remote=" + remoteID_ + " path=" + target);
        throw CancellationError();
    }
}

void RcloneTreeScan::listAndMerge(Folder& folder) {
    throwIfCancelled(folder.target);
    std::vector<RcloneEntry> entries;
    try {
        entries = listFolder_(folder.target, parameters_.stopToken);
    } catch (const CancellationError&) {
        ScanDiagnostics::log("lsjson cancelled remote=" + remoteID_ + " path=" + folder.target);
        throw;
    } catch (const std::exception& error) {
        if (!skipsUnlistableName(folder, error)) {
            throw;
        }
        return;
    }

    std::int64_t files = 0;
    std::int64_t folders = 0;
    std::int64_t bytes = 0;
    for (const auto& entry : entries) {
        if (entry.isDir) {
            ++folders;
        } else {
            ++files;
            bytes = saturatingAdd(bytes, std::max<std::int64_t>(entry.rawSize, 0));
        }
    }
    ScanDiagnostics::log("lsjson parsed remote=" + remoteID_ + " path=" + folder.target +
                         " entries=" + std::to_string(entries.size()) +
                         " subdirs=" + std::to_string(folders));

    const ListingMergeContext context{folder.target, remoteID_, parameters_.scanSession};
    onTreeThread([&] {
        folder.subdirs = mergeListingEntries(entries, *folder.node, context);
        refreshAggregatedSize(*folder.node);
        if (parameters_.partialStructure) {
            parameters_.partialStructure(root_);
        }
    });
    folder.listed = true;

    counter_.addFiles(files, bytes);
    counter_.addFolders(folders);
    if (parameters_.progress) {
        parameters_.progress(counter_.progress(Stage::listing(folder.target)));
    }
}

bool RcloneTreeScan::skipsUnlistableName(Folder& folder, const std::exception& error) {
    // rclone shows bytes of a name that are not UTF-8 as U+FFFD and cannot list a folder by
    // that name ("directory not found"). Such a folder is counted empty and reported; it does
    // not fail the scan of everything else.
    if (folder.node == root_ ||
        folder.node->name().find(kReplacementCharacter) == std::string_view::npos) {
        return false;
    }
    ScanDiagnostics::log("lsjson skipped remote=" + remoteID_ + " path=" + folder.target +
                         " error=" + error.what());
    folder.listed = true;
    if (parameters_.onSkippedFolder) {
        parameters_.onSkippedFolder(
            {.location = folder.node->path(),
             .reason = "its name is not valid UTF-8, which rclone cannot list by name"});
    }
    return true;
}

void RcloneTreeScan::scanDirectory(const FileNodeRef& node, const std::string& remotePath,
                                   int concurrencyLimit) {
    // Every folder below is scanned with the same limit; listings stay strictly sequential.
    (void)concurrencyLimit;
    std::vector<Folder> pending;
    pending.push_back({.node = node, .target = remotePath});
    while (!pending.empty()) {
        const std::size_t top = pending.size() - 1;
        if (!pending[top].listed) {
            listAndMerge(pending[top]);
            continue;
        }
        if (pending[top].nextSubdir < pending[top].subdirs.size()) {
            FileNodeRef child = pending[top].subdirs[pending[top].nextSubdir++];
            std::string target = childTarget(pending[top].target, child->name());
            throwIfCancelled(target);
            pending.push_back({.node = std::move(child), .target = std::move(target)});
            continue;
        }
        // Sizes climb towards the root as folders finish.
        onTreeThread([&] { refreshAggregatedSize(*pending[top].node); });
        pending.pop_back();
    }
}

FileNodeRef RcloneTreeScan::run() {
    const std::string rootTarget = remoteID_ + ":" + parameters_.path;
    root_ = parameters_.seedRoot;
    if (!root_) {
        root_ = FileNode::make(
            {.name = rootName(parameters_.path, remoteID_), .path = "/", .isDirectory = true});
    }
    onTreeThread([&] { root_->clearScanMarks(); });

    scanDirectory(root_, rootTarget, kConcurrencyLimit);

    onTreeThread([&] {
        root_->setScanGeneration(parameters_.scanSession);
        root_->pruneStaleNodes(parameters_.scanSession);
        root_->propagateSizes();
        root_->sortChildren();
        root_->relinkDescendantParentPointers();
    });
    return root_;
}

} // namespace brimvale
