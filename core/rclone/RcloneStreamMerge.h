#pragma once

#include "core/model/FileNode.h"
#include "core/model/SharedText.h"
#include "core/rclone/RcloneEntry.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace brimvale {

// Builds a scan tree from the entries of one recursive listing (`rclone lsjson -R`), which
// arrive in any order: a file before its folder's own entry, siblings of different folders
// interleaved. Folders are made on demand from each entry's Path and completed when their own
// entry comes.
//
// Seed trees (a rescan): a listed item takes the place of the unseen item of the same name and
// kind in its folder; a folder keeps its node and subtree (its details are updated in place),
// a file gets a new node. What the listing never names stays, unmarked, until finish() prunes
// it. Entries of this listing never replace one another: two files of one name in one folder
// (Google Drive allows that) both count, as rclone counts them.
//
// Sizes: after every merge, each folder's size is the sum of its children's sizes, up to the
// root (the seed tree is brought to that state first), so a tree handed out at any moment,
// a stopped scan's included, has its sizes rolled up. Fractions are brought up to date for the
// folders changed since the last call of rebalanceChangedFolders(). Children are not reordered
// before finish(): the index of unseen seed children holds their positions.
//
// Thread safety: the tree's owner only (the main thread once the tree is on screen).
class RcloneStreamMerge {
public:
    RcloneStreamMerge(FileNodeRef root, std::int64_t scanSession);

    void merge(const std::vector<RcloneEntry>& entries);
    // Fractions and sort order of every folder changed since the last call, and of their
    // ancestors, for a live display.
    void rebalanceChangedFolders();
    // The end of a complete listing: prunes what was not seen, rolls every size up, sorts and
    // relinks.
    void finish();

    const FileNodeRef& root() const { return root_; }
    std::int64_t filesMerged() const { return filesMerged_; }
    std::int64_t foldersMerged() const { return foldersMerged_; }
    std::int64_t bytesMerged() const { return bytesMerged_; }

private:
    struct Folder {
        FileNode* node;
        SharedTextRef path; // the node's path, shared by the children made here
    };
    // A folder's children from the seed tree not yet matched by an entry, by name.
    using UnseenChildren = std::unordered_multimap<std::string_view, std::size_t>;

    struct TransparentHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>{}(text);
        }
    };

    Folder& folderAt(std::string_view relativePath);
    Folder& makeOrAdoptFolder(Folder& parent, std::string_view relativePath, std::string_view name);
    // The unseen seed child of `folder` with this name and kind, taken out of the index.
    FileNodeRef* takeUnseenChild(Folder& folder, std::string_view name, bool isDirectory);
    void addToAncestors(FileNode* folder, std::int64_t change);
    void noteChanged(FileNode* folder);

    FileNodeRef root_;
    std::int64_t scanSession_;
    std::unordered_map<std::string, Folder, TransparentHash, std::equal_to<>> folders_;
    std::unordered_map<const FileNode*, UnseenChildren> unseenByFolder_;
    // The folder the previous entry went into: listings come folder by folder, mostly.
    std::string lastParentPath_;
    Folder* lastParent_ = nullptr;
    std::vector<FileNode*> changedFolders_;
    std::unordered_set<const FileNode*> changedSet_; // the same folders, for lookups
    std::int64_t filesMerged_ = 0;
    std::int64_t foldersMerged_ = 0;
    std::int64_t bytesMerged_ = 0;
};

// The folder part of an entry's Path ("a/b" for "a/b/c.txt", "" for "c.txt").
std::string_view parentPathOfEntry(const RcloneEntry& entry);

} // namespace brimvale
