#pragma once

#include "core/local/DirEntry.h"
#include "core/support/UniqueFd.h"

#include <stop_token>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace brimvale {

// An open file descriptor of a folder, closed when the handle goes.
using FolderDescriptor = UniqueFd;

// Which folder to read and how.
struct FolderReadRequest {
    // The folder's absolute file-system location (raw bytes, any length).
    std::string_view location;
    // An open descriptor of the folder's parent, or -1. When given, the folder is opened as
    // `name` relative to it, which spares the kernel the walk along `location`.
    int parentDescriptor = -1;
    std::string_view name;
    // A mount point may start here: find out the file system and skip pseudo file systems.
    // Also reports the folder's own identity and date in the outcome.
    bool checkFileSystem = false;
    // Leave the folder open in the outcome, to read its subfolders relative to it.
    bool keepOpen = false;
    // Fires when the folder's time limit passes or the scan is cancelled; a reader stops
    // promptly then, and reports `stopped`.
    std::stop_token stopToken;
};

enum class FolderReadStatus {
    complete,         // every entry was handed over
    failed,           // the folder could not be opened or read; see errorNumber
    stopped,          // the request's stop token fired
    pseudoFileSystem, // a kernel file system (proc, sysfs…): not listed
};

struct FolderReadOutcome {
    FolderReadStatus status = FolderReadStatus::complete;
    int errorNumber = 0; // errno of a failed read
    // Only with checkFileSystem: the folder's identity and modification time.
    FileIdentity identity;
    double modifiedUnixSeconds = 0;
    // Only with keepOpen, after a complete read.
    FolderDescriptor descriptor;
};

// Receives a folder's entries while it is read.
class DirEntrySink {
public:
    virtual ~DirEntrySink() = default;
    virtual void addEntry(const DirEntry& entry) = 0;
};

// Reads one folder's entries with their sizes. Symbolic links are reported as themselves,
// never followed. Thread safety: read() is called by every worker of a scan at once.
class DirectoryReader {
public:
    virtual ~DirectoryReader() = default;
    // Entries handed to `sink` before a failed or stopped outcome are to be dropped.
    virtual FolderReadOutcome read(const FolderReadRequest& request, DirEntrySink& sink) = 0;
};

} // namespace brimvale
