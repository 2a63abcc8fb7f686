#include "core/cleanup/LocalItemCheck.h"

#include "core/local/MountTable.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <fcntl.h>
#include <pwd.h>
#include <system_error>
#include <unistd.h>

namespace brimvale {
namespace {

std::string quoted(const std::string& location) {
    return "\u201C" + location + "\u201D";
}

std::optional<std::string> realPath(const std::string& location) {
    char resolved[PATH_MAX];
    if (::realpath(location.c_str(), resolved) == nullptr) {
        return std::nullopt;
    }
    return std::string(resolved);
}

bool isInside(const std::string& location, const std::string& folder) {
    if (folder == "/") {
        return location.starts_with('/');
    }
    return location == folder || (location.starts_with(folder) && location[folder.size()] == '/');
}

std::string errorText(int error) {
    return std::generic_category().message(error);
}

std::optional<struct stat> homeFolderStatus() {
    const char* home = std::getenv("HOME");
    std::string location = home != nullptr ? home : "";
    if (location.empty()) {
        if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr && entry->pw_dir) {
            location = entry->pw_dir;
        }
    }
    struct stat status {};
    if (location.empty() || ::stat(location.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return status;
}

bool listedAsMountPoint(const std::string& location) {
    for (const auto& mount : MountTable::readCurrent()) {
        if (mount.mountPoint == location) {
            return true;
        }
    }
    return false;
}

double unixSeconds(const struct timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

} // namespace

std::string CheckedLocalItem::location() const {
    return folderLocation == "/" ? "/" + name : folderLocation + "/" + name;
}

CheckedLocalItem checkLocalItem(const std::string& scanRoot, const ScannedLocalItem& item) {
    const std::string& location = item.location;
    const auto slash = location.rfind('/');
    if (!location.starts_with('/') || slash == std::string::npos || slash + 1 == location.size()) {
        throw DeletionRefused(quoted(location) + " is not an item inside a scanned folder.");
    }
    CheckedLocalItem checked;
    checked.name = location.substr(slash + 1);
    if (checked.name == "." || checked.name == "..") {
        throw DeletionRefused(quoted(location) + " is not an item inside a scanned folder.");
    }
    const auto root = realPath(scanRoot);
    if (!root) {
        throw DeletionRefused("The scanned folder " + quoted(scanRoot) +
                              " cannot be found any more (" + errorText(errno) + ").");
    }
    const std::string folderPath = slash == 0 ? "/" : location.substr(0, slash);
    const auto folder = realPath(folderPath);
    if (!folder) {
        const int error = errno;
        throw DeletionRefused(error == ENOENT
                                  ? quoted(location) + " is no longer there."
                                  : "The folder of " + quoted(location) +
                                        " cannot be reached: " + errorText(error) + ".");
    }
    if (!isInside(*folder, *root)) {
        throw DeletionRefused(quoted(location) +
                              " is reached through a symbolic link that leads out of the "
                              "scanned folder " +
                              quoted(*root) + "; nothing there is deleted.");
    }
    checked.folderLocation = *folder;
    if (checked.location() == *root) {
        throw DeletionRefused("The scanned folder itself is not deleted: " + quoted(*root) + ".");
    }
    checked.folder =
        UniqueFd(::open(folder->c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat folderStatus {};
    struct stat rootStatus {};
    if (!checked.folder.valid() || ::fstat(checked.folder.get(), &folderStatus) != 0 ||
        ::stat(root->c_str(), &rootStatus) != 0) {
        throw DeletionRefused("The folder of " + quoted(location) +
                              " cannot be opened: " + errorText(errno) + ".");
    }
    if (::fstatat(checked.folder.get(), checked.name.c_str(), &checked.status,
                  AT_SYMLINK_NOFOLLOW) != 0) {
        const int error = errno;
        throw DeletionRefused(
            error == ENOENT ? quoted(location) + " is no longer there."
                            : quoted(location) + " cannot be examined: " + errorText(error) + ".");
    }
    const struct stat& status = checked.status;
    const bool isDirectory = S_ISDIR(status.st_mode);
    if (const auto home = homeFolderStatus();
        home && isDirectory && home->st_dev == status.st_dev && home->st_ino == status.st_ino) {
        throw DeletionRefused(quoted(location) + " is your home folder; it is never deleted.");
    }
    if ((isDirectory && status.st_dev != folderStatus.st_dev) ||
        listedAsMountPoint(checked.location())) {
        throw DeletionRefused(quoted(location) +
                              " is where a file system is mounted; unmount it instead.");
    }
    const std::string changed = quoted(location) + " changed since the scan (";
    const std::string rescan = "); scan again before deleting it.";
    if (isDirectory != item.isDirectory) {
        throw DeletionRefused(
            changed + (isDirectory ? "it is a folder now" : "it is no folder now") + rescan);
    }
    if (status.st_dev != rootStatus.st_dev) {
        throw DeletionRefused(quoted(location) +
                              " is on another file system than the scanned folder; scan that "
                              "file system to delete from it.");
    }
    if (item.modifiedDate) {
        const Date now = Date::fromUnixSeconds(unixSeconds(status.st_mtim));
        if (std::fabs(now.secondsSinceReferenceDate -
                      item.modifiedDate->secondsSinceReferenceDate) > 1e-3) {
            throw DeletionRefused(changed + "it was modified" + rescan);
        }
    }
    if (!isDirectory) {
        const auto allocated = static_cast<std::int64_t>(status.st_blocks) * 512;
        const bool countedUnderAnotherName = item.size == 0 && status.st_nlink > 1;
        if (allocated != item.size && !countedUnderAnotherName) {
            throw DeletionRefused(changed + "its size is not the one scanned" + rescan);
        }
    }
    return checked;
}

} // namespace brimvale
