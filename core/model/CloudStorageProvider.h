#pragma once

#include "core/model/FileNode.h"
#include "core/model/ScanProgress.h"
#include "core/model/SkippedFolder.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace brimvale {

class MainQueue;

// What one scan run is given.
struct ScanParameters {
    // The folder to scan: a remote path for cloud accounts, a file-system path for local ones.
    std::string path;
    // This run's number, written into every node the run sees (FileNode::scanGeneration).
    std::int64_t scanSession = 1;
    // An earlier tree whose nodes may be reused (incremental rescan); may be null.
    FileNodeRef seedRoot;
    // Receives progress; called from the scanning thread, at most once per finished folder.
    std::function<void(const ScanProgress&)> progress;
    // Receives the root whenever a partial tree is ready to show. Called from the scanning
    // thread unless the provider merges on the main queue, in which case it is called there.
    std::function<void(const FileNodeRef&)> partialStructure;
    // The main thread's queue, for providers that merge listings into an on-screen tree there.
    MainQueue* mainQueue = nullptr;
    // Cancels the scan: the provider stops promptly and throws CancellationError.
    std::stop_token stopToken;
    // Cloud accounts: one rclone run per folder instead of one recursive listing.
    bool listOneFolderAtATime = false;
    // Receives each folder the scan could not read (it stays empty, or partly listed), from
    // the scanning thread, before the scan returns; may be empty.
    std::function<void(const SkippedFolder&)> onSkippedFolder;
};

// An account that can be scanned: an rclone remote or the local disk. Operations that talk to
// the outside world block and are called on background tasks, never on the main thread;
// failures are thrown (BrimvaleError for cloud failures, CancellationError when stopped).
class CloudStorageProvider {
public:
    virtual ~CloudStorageProvider() = default;

    // The account id: the rclone remote name, without the colon.
    virtual std::string remoteID() const = 0;
    // The name shown in the sidebar and in messages.
    virtual std::string displayName() const = 0;
    // The rclone backend type ("drive", "s3"…); "local" for the local disk.
    virtual std::string rcloneType() const = 0;

    // Whether the account can be scanned.
    virtual bool isConfigured(std::stop_token stopToken) = 0;
    // The children of one directory, without recursion or merge into a tree.
    virtual std::vector<FileNodeRef> listDirectory(const std::string& path,
                                                   std::stop_token stopToken) = 0;
    // A full scan; returns the root of the tree, sorted and with sizes rolled up.
    virtual FileNodeRef scan(const ScanParameters& parameters) = 0;
    // The node's page in the provider's web interface, when there is one.
    virtual std::optional<std::string> webURL(const FileNode& node) const = 0;
    // Bytes in use where the provider can tell cheaply (the local volume's used space).
    virtual std::optional<std::int64_t>
    totalOccupiedBytesForScanPath(const std::string& path, std::stop_token stopToken) = 0;
};

} // namespace brimvale
