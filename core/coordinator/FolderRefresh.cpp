// Refreshing one folder of a finished tree: the folder is listed again on its own and its new
// subtree takes the place of the old one, while the rest of the tree stays on screen.
#include "core/coordinator/CoordinatorInternals.h"
#include "core/coordinator/SkippedFoldersAfterRefresh.h"
#include "core/support/FatalError.h"
#include "core/support/SaturatingAdd.h"
#include "core/support/Task.h"

#include <chrono>

namespace brimvale {
namespace {

// The node at `path` (a FileNode::path() of this tree), found by walking down from the root.
FileNode* nodeAtPath(FileNode& root, std::string_view path) {
    if (path == root.path()) {
        return &root;
    }
    FileNode* node = &root;
    while (node != nullptr && node->path() != path) {
        FileNode* next = nullptr;
        for (const auto& child : node->children()) {
            const std::string childPath = child->path();
            if (child->isDirectory() && path.starts_with(childPath) &&
                (path.size() == childPath.size() || path[childPath.size()] == '/')) {
                next = child.get();
                break;
            }
        }
        node = next;
    }
    return node;
}

// "bucket" + "/a/b" is "bucket/a/b"; "" + "/a/b" is "a/b".
std::string remotePathOfFolder(const std::string& scanPath, std::string_view treePath) {
    while (treePath.starts_with('/')) {
        treePath.remove_prefix(1);
    }
    std::string base = scanPath;
    while (base.ends_with('/')) {
        base.pop_back();
    }
    if (base.empty()) {
        return std::string(treePath);
    }
    return treePath.empty() ? base : base + "/" + std::string(treePath);
}

Date currentDate() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return Date::fromUnixSeconds(std::chrono::duration<double>(now).count());
}

} // namespace

void ScannerViewModel::refreshFolder(const std::string& remoteID, const std::string& folderPath) {
    const State pane = paneState(remoteID);
    const auto* done = pane.as<State::Done>();
    const ProviderRef account = provider(remoteID);
    if (done == nullptr || !done->root || !account) {
        return;
    }
    FileNode* folder = nodeAtPath(*done->root, folderPath);
    if (folder == nullptr || !folder->isDirectory() ||
        run(remoteID).foldersRefreshing.contains(folderPath)) {
        return;
    }
    if (folder == done->root.get()) {
        openAccount(account, {.rescan = true});
        return;
    }
    const bool isLocal = isLocalProvider(*account);
    ScanParameters parameters;
    parameters.scanSession = std::max<std::int64_t>(1, currentLoadGeneration(remoteID));
    if (isLocal) {
        // Local trees keep each item's location without its leading "/".
        parameters.path = "/" + folder->path();
    } else {
        parameters.path = remotePathOfFolder(scanPath(*account), folder->path());
        const auto providerID = folder->providerID();
        const auto mimeType = folder->mimeType();
        parameters.seedRoot = FileNode::make(
            {.name = std::string(folder->name()),
             .path = folder->path(),
             .isDirectory = true,
             .modifiedDate = folder->modifiedDate(),
             .providerID = providerID ? std::optional<std::string>(*providerID) : std::nullopt,
             .mimeType = mimeType ? std::optional<std::string>(*mimeType) : std::nullopt});
        parameters.listOneFolderAtATime = listsOneFolderAtATime(remoteID);
    }
    run(remoteID).foldersRefreshing.insert(folderPath);
    run(remoteID).folderRefreshError.reset();
    notify(PublishedField::folderRefreshes);

    const std::int64_t generation = currentLoadGeneration(remoteID);
    const FileNodeRef root = done->root;
    launchTask("refresh " + remoteID + " " + folderPath,
               [this, account, remoteID, folderPath, generation, root,
                parameters = std::move(parameters)](std::stop_token token) mutable {
                   auto skipped = std::make_shared<std::vector<SkippedFolder>>();
                   auto skippedMutex = std::make_shared<std::mutex>();
                   parameters.stopToken = token;
                   parameters.onSkippedFolder = [skipped,
                                                 skippedMutex](const SkippedFolder& unread) {
                       std::lock_guard lock(*skippedMutex);
                       skipped->push_back(unread);
                   };
                   FileNodeRef fresh;
                   std::exception_ptr failure;
                   try {
                       fresh = account->scan(parameters);
                   } catch (const CancellationError&) {
                   } catch (...) {
                       failure = std::current_exception();
                   }
                   postIfAlive([this, account, remoteID, folderPath, generation, root, fresh,
                                failure, skipped] {
                       finishFolderRefresh({.account = account,
                                            .remoteID = remoteID,
                                            .folderPath = folderPath,
                                            .generation = generation,
                                            .root = root,
                                            .fresh = fresh,
                                            .failure = failure,
                                            .skippedFolders = *skipped});
                   });
               });
}

void ScannerViewModel::finishFolderRefresh(const FolderRefreshResult& result) {
    const auto found = runs_.find(result.remoteID);
    if (found == runs_.end()) {
        // The account was removed meanwhile.
        notify(PublishedField::folderRefreshes);
        return;
    }
    AccountRun& account = found->second;
    account.foldersRefreshing.erase(result.folderPath);
    if (result.failure) {
        account.folderRefreshError = ScanErrorInfo::from(result.failure, *result.account).message;
    }
    const State pane = paneState(result.remoteID);
    const auto* done = pane.as<State::Done>();
    FileNode* old = nullptr;
    // A rescan, another volume or a removal since the refresh started makes its result moot.
    if (result.fresh && done != nullptr && done->root == result.root &&
        currentLoadGeneration(result.remoteID) == result.generation) {
        old = nodeAtPath(*result.root, result.folderPath);
    }
    if (old == nullptr || old->parent() == nullptr) {
        notify(PublishedField::folderRefreshes);
        return;
    }

    FileNode* parent = old->parent();
    const std::int64_t change = result.fresh->size() - old->size();
    for (auto& child : parent->mutableChildren()) {
        if (child.get() == old) {
            child = result.fresh;
            break;
        }
    }
    result.fresh->setParent(parent);
    result.fresh->relinkDescendantParentPointers();
    for (FileNode* ancestor = parent; ancestor != nullptr; ancestor = ancestor->parent()) {
        ancestor->setSize(saturatingAdd(ancestor->size(), change));
        ancestor->sortImmediateChildren();
        ancestor->rebalanceChildren();
    }
    if (selectedNode_ && nodeAtPath(*result.root, selectedNode_->path()) == nullptr) {
        publish(selectedNode_, FileNodeRef(), PublishedField::selectedNode);
    }
    std::vector<SkippedFolder> skipped =
        skippedAfterRefresh(done->skippedFolders, result.skippedFolders, result.folderPath,
                            result.account && isLocalProvider(*result.account));
    const bool partial = done->partial;
    applyPaneState(State::Done{.root = result.root,
                               .savedDate = currentDate(),
                               .occupiedBytes = done->occupiedBytes,
                               .skippedFolders = std::move(skipped),
                               .partial = partial,
                               .saveFailure = done->saveFailure},
                   result.remoteID);
    if (const auto& stem = account.cacheStem()) {
        saveTreeInBackground(*result.root, *stem, "folder refresh", partial);
    }
    notify(PublishedField::folderRefreshes);
}

const std::set<std::string>&
ScannerViewModel::foldersRefreshing(const std::string& remoteID) const {
    static const std::set<std::string> none;
    const AccountRun* account = findRun(remoteID);
    return account == nullptr ? none : account->foldersRefreshing;
}

std::optional<std::string> ScannerViewModel::folderRefreshError(const std::string& remoteID) const {
    const AccountRun* account = findRun(remoteID);
    return account == nullptr ? std::nullopt : account->folderRefreshError;
}

} // namespace brimvale
