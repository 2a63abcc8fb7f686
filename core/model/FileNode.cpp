#include "core/model/FileNode.h"

#include "core/model/DisplayKind.h"
#include "core/model/NameOrder.h"
#include "core/model/SizeFormatter.h"
#include "core/support/FatalError.h"
#include "core/support/SaturatingAdd.h"

#include <algorithm>

namespace brimvale {
namespace {

// The folder path of the node made last on this thread. Listers make the children of one
// folder one after another, so siblings made through make() share one copy of it.
thread_local SharedTextRef lastFolderPath;

SharedTextRef sharedFolderPath(std::string_view folderPath) {
    if (!lastFolderPath || lastFolderPath->view() != folderPath) {
        lastFolderPath = SharedText::make(folderPath);
    }
    return lastFolderPath;
}

} // namespace

FileNode::FileNode(FileNodeFields&& fields, SharedTextRef pathText, PathForm pathForm)
    : flags_(fields.isDirectory ? kDirectoryFlag : 0)
    , pathForm_(pathForm)
    , serial_(detail::nextNodeSerial())
    , name_(fields.name)
    , pathText_(std::move(pathText))
    , size_(fields.size)
    , children_(std::move(fields.children)) {
    if (fields.modifiedDate) {
        modifiedDate_ = fields.modifiedDate->secondsSinceReferenceDate;
    }
    if (fields.providerID || fields.mimeType) {
        providerFields_ = std::make_unique<ProviderFields>(
            ProviderFields{std::move(fields.providerID), std::move(fields.mimeType)});
    }
}

FileNodeRef FileNode::make(FileNodeFields fields) {
    const std::string_view path = fields.path;
    const std::string_view name = fields.name;
    if (path == name) {
        return FileNodeRef::adopt(new FileNode(std::move(fields), nullptr, pathNameOnly));
    }
    if (path.size() > name.size() && path.ends_with(name) &&
        path[path.size() - name.size() - 1] == '/') {
        const std::string_view folder = path.substr(0, path.size() - name.size() - 1);
        SharedTextRef folderText = folder.empty() ? nullptr : sharedFolderPath(folder);
        return FileNodeRef::adopt(
            new FileNode(std::move(fields), std::move(folderText), pathSlashJoined));
    }
    SharedTextRef whole = SharedText::make(path);
    return FileNodeRef::adopt(new FileNode(std::move(fields), std::move(whole), pathVerbatim));
}

FileNodeRef FileNode::makeChild(const SharedTextRef& parentPath, PathJoin join,
                                FileNodeFields fields) {
    const std::string_view folder = parentPath ? parentPath->view() : std::string_view();
    if (folder.empty() && join == PathJoin::relativeTail) {
        return FileNodeRef::adopt(new FileNode(std::move(fields), nullptr, pathNameOnly));
    }
    SharedTextRef folderText = (folder.empty() || folder == "/") ? nullptr : parentPath;
    return FileNodeRef::adopt(
        new FileNode(std::move(fields), std::move(folderText), pathSlashJoined));
}

FileNode::~FileNode() {
    if (children_.empty()) {
        return;
    }
    // Frees the subtree without recursion: the children of every node about to die are moved
    // here first, so each destructor below sees no children.
    std::vector<FileNodeRef> pending = std::move(children_);
    for (const auto& child : pending) {
        if (child->parent_ == this) {
            child->parent_ = nullptr;
        }
    }
    while (!pending.empty()) {
        FileNodeRef node = std::move(pending.back());
        pending.pop_back();
        if (node->references_.load(std::memory_order_acquire) == 1 && !node->children_.empty()) {
            for (auto& child : node->children_) {
                if (child->parent_ == node.get()) {
                    child->parent_ = nullptr;
                }
                pending.push_back(std::move(child));
            }
            node->children_.clear();
        }
    }
}

void FileNode::release() const noexcept {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

std::string FileNode::path() const {
    switch (pathForm_) {
    case pathVerbatim:
        return std::string(pathText_->view());
    case pathNameOnly:
        return std::string(name());
    case pathSlashJoined:
        break;
    }
    const std::string_view folder = pathText_ ? pathText_->view() : std::string_view();
    std::string result;
    result.reserve(folder.size() + 1 + name().size());
    result.append(folder).append(1, '/').append(name());
    return result;
}

SharedTextRef FileNode::sharedPath() const {
    if (pathForm_ == pathVerbatim) {
        return pathText_;
    }
    return SharedText::make(path());
}

std::optional<Date> FileNode::modifiedDate() const {
    if (std::isnan(modifiedDate_)) {
        return std::nullopt;
    }
    return Date{modifiedDate_};
}

std::optional<std::string_view> FileNode::providerID() const {
    if (!providerFields_ || !providerFields_->providerID) {
        return std::nullopt;
    }
    return std::string_view(*providerFields_->providerID);
}

std::optional<std::string_view> FileNode::mimeType() const {
    if (!providerFields_ || !providerFields_->mimeType) {
        return std::nullopt;
    }
    return std::string_view(*providerFields_->mimeType);
}

void FileNode::setListingDetails(std::optional<Date> modifiedDate,
                                 std::optional<std::string> providerID,
                                 std::optional<std::string> mimeType) {
    modifiedDate_ = modifiedDate ? modifiedDate->secondsSinceReferenceDate : std::nan("");
    if (providerID || mimeType) {
        providerFields_ = std::make_unique<ProviderFields>(
            ProviderFields{std::move(providerID), std::move(mimeType)});
    } else {
        providerFields_.reset();
    }
}

void FileNode::addChild(FileNodeRef child) {
    size_ = saturatingAdd(size_, child->size_);
    children_.push_back(std::move(child));
}

void FileNode::rebalanceChildren() {
    if (size_ < 1) {
        return;
    }
    const auto total = static_cast<double>(size_);
    for (const auto& child : children_) {
        child->fractionOfParent_ = static_cast<double>(child->size_) / total;
    }
}

void FileNode::sortImmediateChildren() {
    std::stable_sort(children_.begin(), children_.end(),
                     [](const FileNodeRef& a, const FileNodeRef& b) {
                         if (a->size_ != b->size_) {
                             return a->size_ > b->size_;
                         }
                         return compareNamesForFileManager(a->name(), b->name()) < 0;
                     });
}

void FileNode::sortChildren() {
    std::vector<FileNode*> stack{this};
    while (!stack.empty()) {
        FileNode* node = stack.back();
        stack.pop_back();
        node->sortImmediateChildren();
        for (const auto& child : node->children_) {
            if (!child->children_.empty()) {
                stack.push_back(child.get());
            }
        }
    }
}

void FileNode::relinkDescendantParentPointers() {
    std::vector<FileNode*> stack{this};
    while (!stack.empty()) {
        FileNode* node = stack.back();
        stack.pop_back();
        for (const auto& child : node->children_) {
            child->parent_ = node;
            if (!child->children_.empty()) {
                stack.push_back(child.get());
            }
        }
    }
}

void FileNode::propagateSizes() {
    // Folders in pre-order; walked backwards, every folder comes after all of its descendants.
    std::vector<FileNode*> folders;
    std::vector<FileNode*> stack{this};
    while (!stack.empty()) {
        FileNode* node = stack.back();
        stack.pop_back();
        if (!node->isDirectory()) {
            continue;
        }
        folders.push_back(node);
        for (const auto& child : node->children_) {
            if (child->isDirectory()) {
                stack.push_back(child.get());
            }
        }
    }
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        std::int64_t total = 0;
        for (const auto& child : (*folder)->children_) {
            total = saturatingAdd(total, child->size_);
        }
        (*folder)->size_ = total;
        (*folder)->rebalanceChildren();
    }
}

void FileNode::pruneStaleNodes(std::int64_t session) {
    std::vector<FileNode*> stack{this};
    while (!stack.empty()) {
        FileNode* node = stack.back();
        stack.pop_back();
        auto& children = node->children_;
        const auto stale = std::stable_partition(
            children.begin(), children.end(),
            [session](const FileNodeRef& child) { return child->scanGeneration_ == session; });
        for (auto removed = stale; removed != children.end(); ++removed) {
            if ((*removed)->parent_ == node) {
                (*removed)->parent_ = nullptr;
            }
        }
        children.erase(stale, children.end());
        for (const auto& child : children) {
            if (!child->children_.empty()) {
                stack.push_back(child.get());
            }
        }
    }
}

void FileNode::clearScanMarks() {
    std::vector<FileNode*> stack{this};
    while (!stack.empty()) {
        FileNode* node = stack.back();
        stack.pop_back();
        node->scanGeneration_ = 0;
        for (const auto& child : node->children_) {
            stack.push_back(child.get());
        }
    }
}

std::int64_t FileNode::subtreeNodeCount() const {
    std::int64_t count = 0;
    std::vector<const FileNode*> stack{this};
    while (!stack.empty()) {
        const FileNode* node = stack.back();
        stack.pop_back();
        ++count;
        for (const auto& child : node->children_) {
            stack.push_back(child.get());
        }
    }
    return count;
}

std::string FileNode::formattedSize() const {
    return formatBytes(size_);
}

std::optional<std::string> FileNode::displayKind() const {
    const auto type = mimeType();
    if (!type) {
        return std::nullopt;
    }
    return displayKindForMimeType(*type);
}

} // namespace brimvale
