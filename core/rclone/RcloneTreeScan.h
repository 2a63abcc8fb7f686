#pragma once

#include "core/model/CloudStorageProvider.h"
#include "core/model/FileNode.h"
#include "core/model/ScanCounter.h"
#include "core/rclone/RcloneEntry.h"

#include <exception>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

namespace brimvale {

// One scan of a remote: lists one folder at a time, depth first, in listing order, merges
// each listing into the tree and rolls sizes up one level, then prunes what this scan did not
// see, rolls every size up, sorts and relinks.
//
// Threading: run() blocks its (background) thread. When the parameters carry a main queue,
// every change to the tree (merges, size refreshes, the final passes) is made there, with the
// scanning thread waiting, and the partial-tree callback is called there right after the
// merge; without one, everything happens on the scanning thread. Progress is reported from
// the scanning thread. Each callback is called at most once per finished listing.
// A folder below the scanned one whose name rclone shows with U+FFFD (bytes that are not UTF-8)
// and fails to list is reported through ScanParameters::onSkippedFolder and counted empty.
class RcloneTreeScan {
public:
    // Lists one target ("remote:path"); throws as the runner does.
    using ListFolder =
        std::function<std::vector<RcloneEntry>(const std::string& target, std::stop_token)>;

    // The number of listings a scan could run side by side. Cloud scans list strictly one
    // folder at a time regardless; the value is handed down unchanged on purpose.
    static constexpr int kConcurrencyLimit = 4;

    RcloneTreeScan(std::string remoteID, ListFolder listFolder, const ScanParameters& parameters);

    // Scans and returns the root: the seed root when given (its nodes are reused where the
    // listing still has them), else a new folder named after the scanned path.
    FileNodeRef run();

    // "remote:" + "a" is "remote:a"; "remote:a" + "b" is "remote:a/b"; an empty child gives
    // the target itself.
    static std::string childTarget(const std::string& target, std::string_view childName);
    // The name of a new scan root: the last component of `path`, else the remote's id.
    static std::string rootName(const std::string& path, const std::string& remoteID);

private:
    struct Folder {
        FileNodeRef node;
        std::string target;
        bool listed = false;
        std::vector<FileNodeRef> subdirs;
        std::size_t nextSubdir = 0;
    };

    // Lists `node` (the folder at `remotePath`) and every folder below it, depth first in
    // listing order, one listing at a time; sizes climb towards `node` as folders finish.
    // Iterative: a remote may nest folders deeper than the stack allows.
    void scanDirectory(const FileNodeRef& node, const std::string& remotePath,
                       int concurrencyLimit);
    void listAndMerge(Folder& folder);
    // Whether the failed listing of `folder` is one to skip (reported, counted empty) rather
    // than to fail the scan with; marks it listed when so.
    bool skipsUnlistableName(Folder& folder, const std::exception& error);
    void throwIfCancelled(const std::string& target) const;
    template <class Work> void onTreeThread(Work&& work) const;

    std::string remoteID_;
    ListFolder listFolder_;
    const ScanParameters& parameters_;
    ScanCounter counter_;
    FileNodeRef root_;
};

} // namespace brimvale
