#pragma once

#include "core/cleanup/LocalRemoval.h"
#include "core/model/Date.h"
#include "core/rclone/RcloneRunner.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

namespace brimvale {

class FileNode;

enum class DeletionMethod {
    moveToTrash,       // local items, to the user's trash
    deletePermanently, // local items, removed for good
    deleteFromCloud,   // cloud items, through rclone
};

// One item to delete, as the tree on screen has it.
struct DeletionItem {
    std::string treePath; // FileNode::path()
    // Local items: the absolute location. Cloud items: "remote:path".
    std::string location;
    bool isDirectory = false;
    std::int64_t size = 0;
    std::int64_t itemCount = 1; // the item and everything below it
    std::optional<Date> modifiedDate;
};

// The item of a tree node: `scanRoot` is the account's scan path (the local folder, or the
// bucket of a cloud account, "" for a whole remote) and `accountID` the remote's name.
DeletionItem deletionItem(const FileNode& node, bool isLocal, const std::string& accountID,
                          const std::string& scanRoot);

struct DeletionRequest {
    DeletionMethod method = DeletionMethod::moveToTrash;
    std::string accountLabel; // for messages
    std::string scanRoot;     // local: the scanned folder's location
    std::vector<DeletionItem> items;
    RcloneRunner runner; // cloud only
};

struct DeletionProgress {
    std::size_t itemsDone = 0;
    std::size_t itemsTotal = 0;
    std::int64_t entriesRemoved = 0; // files and folders removed so far (local)
    std::string current;             // the item being deleted
};

struct DeletionReport {
    // Items gone, by tree path.
    std::vector<std::string> deleted;
    // Folders of which only a part went (a failure or Stop inside them): list them again.
    std::vector<std::string> partlyDeleted;
    // What was not deleted, and why (refusals included).
    std::vector<DeletionFailure> failures;
    // Local folders that lost an item, with their modification time now (tree paths), so the
    // tree keeps matching the disk and the folder itself can be deleted next.
    std::vector<std::pair<std::string, Date>> changedFolders;
    std::int64_t bytesFreed = 0; // as scanned, of the items gone
    bool stopped = false;
};

// Deletes the request's items one after another on this (background) thread; every step is
// written to the diagnostics log. Local items are checked first (checkLocalItem); a refused
// item is a failure and the others go on. Stop ends at the next entry (local) or with SIGTERM
// to rclone (cloud); items not reached are reported as not deleted.
DeletionReport runDeletion(const DeletionRequest& request, std::stop_token stopToken,
                           const std::function<void(const DeletionProgress&)>& onProgress = {});

} // namespace brimvale
