#pragma once

#include "core/model/FileNode.h"
#include "core/model/ScanUIThrottle.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace brimvale {

// An earlier node that a listing keeps (a rescan), with the file's new size.
struct ReusedNode {
    FileNodeRef node;
    std::optional<std::int64_t> newSize; // files only; a folder keeps its size until listed
};

// A folder's children as a worker read them. Every new node in it already has its parent link,
// scan mark and size; nothing in it is shared with another thread until it is submitted.
struct FolderListing {
    FileNodeRef folder;
    std::vector<FileNodeRef> children; // replaces the folder's children
    std::vector<ReusedNode> reused;    // nodes of `children` taken over from the seed tree
    std::int64_t childrenTotal = 0;    // the sum of the children's sizes once applied
};

// Builds the live tree of a scan from the listings the workers submit. Workers never touch a
// node that is in the tree; only the tree's owner (the scan's thread, or the main thread when
// the scan merges there) applies listings and reads the tree, so a partial tree handed out in
// a flush is never changed behind its reader's back while the owner is busy elsewhere.
// After each listing, every folder's size is the sum of its children's, up to the root;
// fractions are brought up to date at flushes only.
// Thread safety: submit() from any thread; everything else from the owner only.
class LiveTreeAssembler {
public:
    struct Settings {
        FileNodeRef root;
        std::int64_t scanSession = 1;
        // Receives the root at each flush; may be empty.
        std::function<void(const FileNodeRef&)> partialStructure;
        // Decides when a flush is due; owned by the caller, used only by the owner.
        ScanUIThrottle* throttle = nullptr;
    };

    explicit LiveTreeAssembler(Settings settings);

    void submit(FolderListing listing);

    // Applies every submitted listing; returns how many.
    std::size_t applyPending();
    // A live flush when the throttle allows: fractions of the changed folders and their
    // ancestors are brought up to date and the root is handed to partialStructure.
    bool flushIfDue();

private:
    void apply(FolderListing& listing);
    void rebalanceTouchedFolders();

    Settings settings_;
    std::mutex lock_;                    // guards pending_
    std::vector<FolderListing> pending_; // submitted, not yet applied
    // Owner only:
    std::vector<FolderListing> applying_;
    std::vector<FileNodeRef> touchedSinceFlush_; // folders whose sizes changed
};

} // namespace brimvale
