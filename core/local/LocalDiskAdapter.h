#pragma once

#include "core/local/LocalScanOptions.h"
#include "core/model/CloudStorageProvider.h"

#include <string>

namespace brimvale {

// The local disk as a provider of type "local": scans folders of this machine with a pool of
// workers reading directories directly (allocated sizes, each folder and each hard-linked file
// once, symbolic links never followed, kernel file systems never entered, slow folders skipped
// after a time limit). Thread safety: every member may be called from any thread; several
// scans may run at once, each on its caller's thread.
class LocalDiskAdapter final : public CloudStorageProvider {
public:
    LocalDiskAdapter(std::string remoteID, std::string displayName, LocalScanOptions options = {});

    std::string remoteID() const override { return remoteID_; }
    std::string displayName() const override { return displayName_; }
    std::string rcloneType() const override { return "local"; }

    bool isConfigured(std::stop_token stopToken) override;
    // The children of the folder `path` (folders with size 0), in the order read.
    std::vector<FileNodeRef> listDirectory(const std::string& path,
                                           std::stop_token stopToken) override;
    // Scans the folder `parameters.path` (a relative path is taken from the current folder; a
    // symbolic link to a folder is followed for the root only). The nodes carry logical paths:
    // the absolute location without its leading "/". Without a main queue the live tree is
    // built and flushed on the calling thread; with one, on the main thread. Throws
    // std::system_error when the path is missing or not a folder, CancellationError when
    // stopped; unreadable subfolders never fail the scan.
    FileNodeRef scan(const ScanParameters& parameters) override;
    std::optional<std::string> webURL(const FileNode& node) const override;
    // The used bytes of the volume that holds `path` (statvfs); empty when it cannot be read.
    std::optional<std::int64_t> totalOccupiedBytesForScanPath(const std::string& path,
                                                              std::stop_token stopToken) override;

    const LocalScanOptions& options() const { return options_; }

    // The absolute, symbolic-link-free location of the folder `path`; throws std::system_error
    // when it is missing or not a folder.
    static std::string resolveScanLocation(const std::string& path);

private:
    std::string remoteID_;
    std::string displayName_;
    LocalScanOptions options_;
};

} // namespace brimvale
