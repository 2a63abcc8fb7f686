#include "core/rclone/RcloneStreamMerge.h"

#include "core/rclone/PlainInternetDate.h"
#include "core/support/FatalError.h"
#include "core/support/SaturatingAdd.h"

namespace brimvale {

std::string_view parentPathOfEntry(const RcloneEntry& entry) {
    const std::string_view path = entry.path;
    const std::string_view name = entry.name;
    if (path.size() > name.size() && path.ends_with(name) &&
        path[path.size() - name.size() - 1] == '/') {
        return path.substr(0, path.size() - name.size() - 1);
    }
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

namespace {

std::string_view lastComponent(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view parentOf(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

} // namespace

RcloneStreamMerge::RcloneStreamMerge(FileNodeRef root, std::int64_t scanSession)
    : root_(std::move(root))
    , scanSession_(scanSession) {
    root_->setParent(nullptr);
    root_->relinkDescendantParentPointers();
    root_->clearScanMarks();
    root_->setScanGeneration(scanSession_);
    // A saved tree's folder sizes are sums already; making sure keeps the running sums true.
    root_->propagateSizes();
    Folder& top =
        folders_.emplace(std::string(), Folder{root_.get(), root_->sharedPath()}).first->second;
    if (!root_->children().empty()) {
        auto& unseen = unseenByFolder_[root_.get()];
        const auto& children = root_->children();
        unseen.reserve(children.size());
        for (std::size_t i = 0; i < children.size(); ++i) {
            unseen.emplace(children[i]->name(), i);
        }
    }
    lastParent_ = &top;
}

FileNodeRef* RcloneStreamMerge::takeUnseenChild(Folder& folder, std::string_view name,
                                                bool isDirectory) {
    const auto unseen = unseenByFolder_.find(folder.node);
    if (unseen == unseenByFolder_.end()) {
        return nullptr;
    }
    auto [first, last] = unseen->second.equal_range(name);
    for (auto match = first; match != last; ++match) {
        FileNodeRef& child = folder.node->mutableChildren()[match->second];
        if (child->isDirectory() == isDirectory) {
            unseen->second.erase(match);
            return &child;
        }
    }
    return nullptr;
}

RcloneStreamMerge::Folder& RcloneStreamMerge::makeOrAdoptFolder(Folder& parent,
                                                                std::string_view relativePath,
                                                                std::string_view name) {
    FileNode* node = nullptr;
    if (FileNodeRef* kept = takeUnseenChild(parent, name, true)) {
        node = kept->get();
        node->setScanGeneration(scanSession_);
        if (!node->children().empty()) {
            auto& unseen = unseenByFolder_[node];
            const auto& children = node->children();
            unseen.reserve(children.size());
            for (std::size_t i = 0; i < children.size(); ++i) {
                unseen.emplace(children[i]->name(), i);
            }
        }
    } else {
        FileNodeRef made = FileNode::makeChild(parent.path, PathJoin::slash,
                                               {.name = std::string(name), .isDirectory = true});
        made->setScanGeneration(scanSession_);
        made->setParent(parent.node);
        node = made.get();
        parent.node->mutableChildren().push_back(std::move(made));
        noteChanged(parent.node);
    }
    return folders_.emplace(std::string(relativePath), Folder{node, node->sharedPath()})
        .first->second;
}

RcloneStreamMerge::Folder& RcloneStreamMerge::folderAt(std::string_view relativePath) {
    if (lastParent_ != nullptr && relativePath == lastParentPath_) {
        return *lastParent_;
    }
    Folder* found = nullptr;
    if (const auto known = folders_.find(relativePath); known != folders_.end()) {
        found = &known->second;
    } else {
        // Made from the top down: the nearest known ancestor first, then each missing level.
        std::vector<std::string_view> missing;
        std::string_view path = relativePath;
        Folder* ancestor = nullptr;
        while (ancestor == nullptr) {
            missing.push_back(path);
            path = parentOf(path);
            if (const auto parent = folders_.find(path); parent != folders_.end()) {
                ancestor = &parent->second;
            }
        }
        for (auto level = missing.rbegin(); level != missing.rend(); ++level) {
            ancestor = &makeOrAdoptFolder(*ancestor, *level, lastComponent(*level));
        }
        found = ancestor;
    }
    lastParentPath_.assign(relativePath);
    lastParent_ = found;
    return *found;
}

void RcloneStreamMerge::addToAncestors(FileNode* folder, std::int64_t change) {
    if (change == 0) {
        return;
    }
    for (FileNode* node = folder; node != nullptr; node = node->parent()) {
        node->setSize(saturatingAdd(node->size(), change));
    }
}

void RcloneStreamMerge::noteChanged(FileNode* folder) {
    if (changedSet_.insert(folder).second) {
        changedFolders_.push_back(folder);
    }
}

void RcloneStreamMerge::merge(const std::vector<RcloneEntry>& entries) {
    for (const auto& entry : entries) {
        if (entry.name.empty() || entry.path.empty()) {
            continue;
        }
        std::optional<Date> date =
            entry.modTime ? parsePlainInternetDate(*entry.modTime) : std::nullopt;
        if (entry.isDir) {
            // A folder made on demand, or kept from the seed, is completed in place.
            const std::string_view path = entry.path;
            FileNode* node = nullptr;
            if (const auto known = folders_.find(path); known != folders_.end()) {
                node = known->second.node;
            } else {
                Folder& parent = folderAt(parentPathOfEntry(entry));
                node = makeOrAdoptFolder(parent, path, entry.name).node;
            }
            node->setListingDetails(date, entry.id, entry.mimeType);
            ++foldersMerged_;
            continue;
        }

        Folder& parent = folderAt(parentPathOfEntry(entry));
        const std::int64_t size = entry.rawSize >= 0 ? entry.rawSize : 0;
        FileNodeRef file = FileNode::makeChild(parent.path, PathJoin::slash,
                                               {.name = entry.name,
                                                .isDirectory = false,
                                                .size = size,
                                                .modifiedDate = date,
                                                .providerID = entry.id,
                                                .mimeType = entry.mimeType});
        file->setScanGeneration(scanSession_);
        file->setParent(parent.node);
        std::int64_t change = size;
        if (FileNodeRef* kept = takeUnseenChild(parent, entry.name, false)) {
            change = size - (*kept)->size();
            *kept = std::move(file);
        } else {
            parent.node->mutableChildren().push_back(std::move(file));
        }
        addToAncestors(parent.node, change);
        noteChanged(parent.node);
        ++filesMerged_;
        bytesMerged_ = saturatingAdd(bytesMerged_, size);
    }
}

void RcloneStreamMerge::rebalanceChangedFolders() {
    std::unordered_set<const FileNode*> done;
    for (FileNode* changed : changedFolders_) {
        for (FileNode* folder = changed; folder != nullptr; folder = folder->parent()) {
            if (!done.insert(folder).second) {
                break;
            }
            folder->rebalanceChildren();
        }
    }
    changedFolders_.clear();
    changedSet_.clear();
}

void RcloneStreamMerge::finish() {
    unseenByFolder_.clear();
    folders_.clear();
    lastParent_ = nullptr;
    changedFolders_.clear();
    changedSet_.clear();
    root_->setScanGeneration(scanSession_);
    root_->pruneStaleNodes(scanSession_);
    root_->propagateSizes();
    root_->sortChildren();
    root_->relinkDescendantParentPointers();
}

} // namespace brimvale
