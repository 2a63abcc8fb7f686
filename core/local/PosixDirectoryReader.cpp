#include "core/local/PosixDirectoryReader.h"

#include "core/local/PseudoFileSystems.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/statfs.h>

#if defined(__linux__)
#include <sys/syscall.h>
#else
#include <dirent.h>
#endif

namespace brimvale {
namespace {

constexpr int kFolderOpenFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;

// Longest piece of a location handed to one openat; stays below PATH_MAX with room to spare.
constexpr std::size_t kLocationPiece = 3072;

double unixSeconds(const struct timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

int openPieceByPiece(std::string_view location) {
    FolderDescriptor current(::open("/", kFolderOpenFlags));
    if (!current.valid()) {
        return -1;
    }
    std::string piece;
    std::size_t start = 0;
    while (start < location.size() && location[start] == '/') {
        ++start;
    }
    while (start < location.size()) {
        std::size_t end = location.size();
        if (end - start > kLocationPiece) {
            end = location.rfind('/', start + kLocationPiece);
            if (end == std::string_view::npos || end <= start) {
                errno = ENAMETOOLONG;
                return -1;
            }
        }
        const bool last = end == location.size();
        piece.assign(location.substr(start, end - start));
        const int next =
            ::openat(current.get(), piece.c_str(), kFolderOpenFlags | (last ? O_NOFOLLOW : 0));
        if (next < 0) {
            return -1;
        }
        current = FolderDescriptor(next);
        start = end + 1;
    }
    return current.release();
}

// Fills `entry` for `name` from fstatat; false when the entry vanished meanwhile. Other
// failures set `errorNumber`.
bool statEntry(int folder, const char* name, DirEntry& entry, int& errorNumber) {
    struct stat status {};
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) {
            errorNumber = errno;
        }
        return false;
    }
    entry.name = name;
    entry.isDirectory = S_ISDIR(status.st_mode);
    entry.isSymbolicLink = S_ISLNK(status.st_mode);
    entry.allocatedSize = entry.isDirectory ? 0 : static_cast<std::int64_t>(status.st_blocks) * 512;
    entry.modifiedUnixSeconds = unixSeconds(status.st_mtim);
    entry.identity = {static_cast<std::uint64_t>(status.st_dev),
                      static_cast<std::uint64_t>(status.st_ino)};
    entry.linkCount = static_cast<std::uint64_t>(status.st_nlink);
    return true;
}

bool isDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

#if defined(__linux__)

// The record layout of getdents64 (linux_dirent64).
struct LinuxDirent64 {
    std::uint64_t inode;
    std::int64_t offset;
    unsigned short recordLength;
    unsigned char type;
    char name[1];
};

constexpr std::size_t kListingBufferBytes = 64 * 1024;

// Hands every entry of the open folder to the sink; returns the outcome's status.
FolderReadStatus listEntries(int folder, const FolderReadRequest& request, DirEntrySink& sink,
                             int& errorNumber) {
    thread_local std::unique_ptr<char[]> buffer(new char[kListingBufferBytes]);
    DirEntry entry;
    for (;;) {
        if (request.stopToken.stop_requested()) {
            return FolderReadStatus::stopped;
        }
        const long filled = ::syscall(SYS_getdents64, folder, buffer.get(), kListingBufferBytes);
        if (filled < 0) {
            errorNumber = errno;
            return FolderReadStatus::failed;
        }
        if (filled == 0) {
            return FolderReadStatus::complete;
        }
        for (long offset = 0; offset < filled;) {
            const auto* record = reinterpret_cast<const LinuxDirent64*>(buffer.get() + offset);
            offset += record->recordLength;
            if (isDotOrDotDot(record->name)) {
                continue;
            }
            if (request.stopToken.stop_requested()) {
                return FolderReadStatus::stopped;
            }
            if (statEntry(folder, record->name, entry, errorNumber)) {
                sink.addEntry(entry);
            } else if (errorNumber != 0) {
                return FolderReadStatus::failed;
            }
        }
    }
}

#else

FolderReadStatus listEntries(int folder, const FolderReadRequest& request, DirEntrySink& sink,
                             int& errorNumber) {
    // fdopendir takes the descriptor over; give it a copy so the caller's stays open.
    const int copy = ::dup(folder);
    if (copy < 0) {
        errorNumber = errno;
        return FolderReadStatus::failed;
    }
    DIR* stream = ::fdopendir(copy);
    if (stream == nullptr) {
        errorNumber = errno;
        ::close(copy);
        return FolderReadStatus::failed;
    }
    DirEntry entry;
    FolderReadStatus status = FolderReadStatus::complete;
    for (;;) {
        if (request.stopToken.stop_requested()) {
            status = FolderReadStatus::stopped;
            break;
        }
        errno = 0;
        const dirent* record = ::readdir(stream);
        if (record == nullptr) {
            if (errno != 0) {
                errorNumber = errno;
                status = FolderReadStatus::failed;
            }
            break;
        }
        if (isDotOrDotDot(record->d_name)) {
            continue;
        }
        if (statEntry(folder, record->d_name, entry, errorNumber)) {
            sink.addEntry(entry);
        } else if (errorNumber != 0) {
            status = FolderReadStatus::failed;
            break;
        }
    }
    ::closedir(stream);
    return status;
}

#endif

} // namespace

int openFolderForReading(int parentDescriptor, std::string_view name, std::string_view location) {
    if (parentDescriptor >= 0) {
        const std::string ownName(name);
        return ::openat(parentDescriptor, ownName.c_str(), kFolderOpenFlags | O_NOFOLLOW);
    }
    if (location.size() >= kLocationPiece) {
        return openPieceByPiece(location);
    }
    const std::string ownLocation(location);
    return ::open(ownLocation.c_str(), kFolderOpenFlags | O_NOFOLLOW);
}

FolderReadOutcome PosixDirectoryReader::read(const FolderReadRequest& request, DirEntrySink& sink) {
    FolderReadOutcome outcome;
    FolderDescriptor folder(
        openFolderForReading(request.parentDescriptor, request.name, request.location));
    if (!folder.valid()) {
        outcome.status = FolderReadStatus::failed;
        outcome.errorNumber = errno;
        return outcome;
    }
    if (request.checkFileSystem) {
        struct stat status {};
        if (::fstat(folder.get(), &status) != 0) {
            outcome.status = FolderReadStatus::failed;
            outcome.errorNumber = errno;
            return outcome;
        }
        outcome.identity = {static_cast<std::uint64_t>(status.st_dev),
                            static_cast<std::uint64_t>(status.st_ino)};
        outcome.modifiedUnixSeconds = unixSeconds(status.st_mtim);
        if (folderIsOnPseudoFileSystem(folder.get(), outcome.identity.device)) {
            outcome.status = FolderReadStatus::pseudoFileSystem;
            return outcome;
        }
    }
    outcome.status = listEntries(folder.get(), request, sink, outcome.errorNumber);
    if (outcome.status == FolderReadStatus::complete && request.keepOpen) {
        outcome.descriptor = std::move(folder);
    }
    return outcome;
}

} // namespace brimvale
