#pragma once

#include "core/model/CompactString.h"
#include "core/model/Date.h"
#include "core/model/NodeID.h"
#include "core/model/SharedText.h"
#include "core/support/RefPtr.h"

#include <atomic>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

class FileNode;
using FileNodeRef = RefPtr<FileNode>;

// What a node is made from. `children` are taken as given; their parent links are not set
// (call relinkDescendantParentPointers afterwards).
struct FileNodeFields {
    std::string name;
    std::string path;
    bool isDirectory = false;
    std::int64_t size = 0;
    std::optional<Date> modifiedDate;
    std::optional<std::string> providerID;
    std::optional<std::string> mimeType;
    std::vector<FileNodeRef> children;
};

// How a child's path follows from its folder's path P when a builder makes it with makeChild.
enum class PathJoin {
    // P + "/" + name; a folder path of exactly "/" gives "/" + name. Cloud listings and the
    // cache's rebuild use it.
    slash,
    // As slash, but an empty folder path gives the name alone: the local scanner's logical
    // paths, relative to the volume root with no leading "/".
    relativeTail,
};

// One item of a scan tree, cloud or local: a root for the scanned account or folder, folders
// with their children, and files.
//
// Ownership: nodes are reference counted (FileNodeRef); a node owns its children; the parent
// link is non-owning and is cleared when the parent is destroyed, so dropping the root frees the
// whole tree and a node still held elsewhere (by a view) sees no parent. Every pass over a tree
// is iterative: a chain of 100,000 folders neither overflows the stack when walked nor when freed.
//
// Thread safety: counting references is atomic, so nodes may be handed between threads; a tree
// itself is used by one thread at a time (the lister while it builds, then the main thread once
// it is published). Views observe changes through the coordinator, which publishes a tree
// after each change, not through the nodes.
//
// Memory: about 112 bytes per node plus the name's bytes beyond seven and a share of its
// folder's path: the path is stored as the folder's path, shared by all siblings, plus the name.
class FileNode {
public:
    static FileNodeRef make(FileNodeFields fields);
    // A node whose path is `parentPath` joined with its name by `join` (fields.path is ignored).
    // Builders call it with the folder's sharedPath(), so siblings share one copy of it.
    static FileNodeRef makeChild(const SharedTextRef& parentPath, PathJoin join,
                                 FileNodeFields fields);

    FileNode(const FileNode&) = delete;
    FileNode& operator=(const FileNode&) = delete;

    NodeID id() const { return detail::nodeIDFromSerial(serial_); }
    std::string_view name() const { return name_.view(); }
    std::string path() const;
    // This node's path as one shared text, for making children with makeChild.
    SharedTextRef sharedPath() const;
    bool isDirectory() const { return flags_ & kDirectoryFlag; }

    std::int64_t size() const { return size_; }
    void setSize(std::int64_t bytes) { size_ = bytes; }

    std::optional<Date> modifiedDate() const;
    std::optional<std::string_view> providerID() const;
    std::optional<std::string_view> mimeType() const;
    // Replaces the date, provider id and MIME type: a streamed listing updates a folder it
    // made on demand, or one kept from an earlier scan, once the folder's own entry arrives.
    void setListingDetails(std::optional<Date> modifiedDate, std::optional<std::string> providerID,
                           std::optional<std::string> mimeType);

    const std::vector<FileNodeRef>& children() const { return children_; }
    // The children in their current, already sorted order.
    const std::vector<FileNodeRef>& sortedChildren() const { return children_; }
    // For listers and merges that edit the children in place. Sizes are not updated.
    std::vector<FileNodeRef>& mutableChildren() { return children_; }

    double fractionOfParent() const { return fractionOfParent_; }
    void setFractionOfParent(double fraction) { fractionOfParent_ = fraction; }

    // The mark of the scan session that last saw this node; 0 = none.
    std::int64_t scanGeneration() const { return scanGeneration_; }
    void setScanGeneration(std::int64_t session) { scanGeneration_ = session; }

    FileNode* parent() const { return parent_; }
    void setParent(FileNode* parent) { parent_ = parent; }

    // Appends `child` and adds its size to this node's (a sum past the largest size stays there).
    // The child's parent link is not touched.
    void addChild(FileNodeRef child);

    // Every direct child's fractionOfParent = child size / this size; nothing changes when this
    // size is below 1, so children keep their previous fractions.
    void rebalanceChildren();
    // Orders this node's children: larger size first; equal sizes by name in file-manager order;
    // otherwise their previous order.
    void sortImmediateChildren();
    // sortImmediateChildren on every folder of the subtree.
    void sortChildren();
    // Sets every descendant's parent link to its parent in this subtree.
    void relinkDescendantParentPointers();

    // Roll-up: every folder of the subtree, deepest first, gets the sum of its children's sizes
    // and rebalanced fractions; files keep their sizes.
    void propagateSizes();
    // Removes, from this subtree, every node whose scanGeneration is not `session` (with its
    // subtree); the order of the rest is kept.
    void pruneStaleNodes(std::int64_t session);
    // Sets scanGeneration to 0 on this node and every descendant.
    void clearScanMarks();

    // The number of nodes in this subtree, this one included.
    std::int64_t subtreeNodeCount() const;

    std::string formattedSize() const;
    std::optional<std::string> displayKind() const;

    void retain() const noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() const noexcept;

private:
    enum PathForm : std::uint8_t {
        pathVerbatim,    // pathText_ is the whole path
        pathSlashJoined, // pathText_ (empty when absent) + "/" + name
        pathNameOnly,    // the name alone
    };
    static constexpr std::uint8_t kDirectoryFlag = 0x01;

    struct ProviderFields {
        std::optional<std::string> providerID;
        std::optional<std::string> mimeType;
    };

    FileNode(FileNodeFields&& fields, SharedTextRef pathText, PathForm pathForm);
    ~FileNode();

    mutable std::atomic<std::uint32_t> references_{1};
    std::uint8_t flags_ = 0;
    PathForm pathForm_ = pathVerbatim;
    std::int64_t scanGeneration_ = 0;
    std::uint64_t serial_;
    CompactString name_;
    SharedTextRef pathText_;
    std::int64_t size_ = 0;
    double modifiedDate_ = std::nan(""); // seconds since the reference date; NaN = none
    double fractionOfParent_ = 0;
    std::unique_ptr<ProviderFields> providerFields_; // only for items that have either field
    FileNode* parent_ = nullptr;
    std::vector<FileNodeRef> children_;
};

} // namespace brimvale
