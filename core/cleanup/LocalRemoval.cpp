#include "core/cleanup/LocalRemoval.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QString>

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace brimvale {
namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

std::string errorText(int error) {
    return std::generic_category().message(error);
}

// One open folder being emptied: its names read in full first (removing while reading a
// folder may skip entries on some file systems), then removed one by one.
struct Frame {
    UniqueFd fd;
    std::string location;
    std::string name; // in its own folder
    dev_t device = 0;
    std::vector<std::string> names;
    std::size_t next = 0;
    bool keepsSomething = false;
};

// The names in the folder `fd` (its descriptor stays open and usable).
std::vector<std::string> readNames(int fd, int& error) {
    std::vector<std::string> names;
    const int copy = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
    DIR* stream = copy < 0 ? nullptr : ::fdopendir(copy);
    if (stream == nullptr) {
        error = errno;
        if (copy >= 0) {
            ::close(copy);
        }
        return names;
    }
    errno = 0;
    while (const dirent* entry = ::readdir(stream)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
        errno = 0;
    }
    error = errno;
    ::closedir(stream);
    return names;
}

std::string joined(const std::string& folder, const std::string& name) {
    return folder == "/" ? "/" + name : folder + "/" + name;
}

} // namespace

void moveLocalItemToTrash(const CheckedLocalItem& item) {
    const std::string location = item.location();
    const QString name = QFile::decodeName(QByteArray::fromStdString(location));
    if (QFile::encodeName(name).toStdString() != location) {
        throw DeletionRefused("\u201C" + location +
                              "\u201D has a name the trash cannot record; use Delete "
                              "Permanently instead.");
    }
    // Qt makes the home trash only inside an existing data folder, and when it cannot, it
    // trashes into "files/" of the current folder: the data folder is made first, and a
    // trashed location that is not absolute is undone.
    QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
    QFile file(name);
    const bool moved = file.moveToTrash();
    if (moved && QDir::isRelativePath(file.fileName())) {
        const std::string misplaced = QFile::encodeName(file.fileName()).toStdString();
        if (::rename(misplaced.c_str(), location.c_str()) == 0) {
            const QString trashedName = file.fileName().section(QLatin1Char('/'), -1);
            QFile::remove(QStringLiteral("info/") + trashedName + QStringLiteral(".trashinfo"));
        }
        throw DeletionRefused("\u201C" + location +
                              "\u201D could not be moved to the trash: no trash folder could be "
                              "made. Delete Permanently removes it instead.");
    }
    if (!moved) {
        throw DeletionRefused("\u201C" + location +
                              "\u201D could not be moved to the trash: this file system has no "
                              "trash Brimvale can use (" +
                              file.errorString().toStdString() +
                              "). Delete Permanently removes it instead.");
    }
}

RemovalOutcome removeLocalItemPermanently(const CheckedLocalItem& item, std::stop_token stopToken,
                                          const std::function<void(std::int64_t)>& onProgress) {
    RemovalOutcome outcome;
    const std::string location = item.location();
    const auto removed = [&] {
        ++outcome.entriesRemoved;
        if (onProgress && outcome.entriesRemoved % 256 == 0) {
            onProgress(outcome.entriesRemoved);
        }
    };
    if (!S_ISDIR(item.status.st_mode)) {
        if (::unlinkat(item.folder.get(), item.name.c_str(), 0) != 0) {
            outcome.failures.push_back({location, errorText(errno)});
        } else {
            removed();
        }
        return outcome;
    }

    std::vector<Frame> stack;
    const auto enter = [&](int parentFd, const std::string& folderLocation, const std::string& name,
                           const struct stat* expected) -> bool {
        const std::string entryLocation = joined(folderLocation, name);
        UniqueFd fd(::openat(parentFd, name.c_str(), kFolderFlags));
        struct stat status {};
        if (!fd.valid() || ::fstat(fd.get(), &status) != 0) {
            outcome.failures.push_back({entryLocation, errorText(errno)});
            return false;
        }
        if (expected != nullptr &&
            (status.st_dev != expected->st_dev || status.st_ino != expected->st_ino)) {
            outcome.failures.push_back({entryLocation, "it was replaced while being deleted"});
            return false;
        }
        int error = 0;
        std::vector<std::string> names = readNames(fd.get(), error);
        if (error != 0) {
            outcome.failures.push_back({entryLocation, errorText(error)});
            return false;
        }
        stack.push_back(Frame{.fd = std::move(fd),
                              .location = entryLocation,
                              .name = name,
                              .device = status.st_dev,
                              .names = std::move(names)});
        return true;
    };
    if (!enter(item.folder.get(), item.folderLocation, item.name, &item.status)) {
        return outcome;
    }
    while (!stack.empty()) {
        if (stopToken.stop_requested()) {
            outcome.stopped = true;
            break;
        }
        Frame& top = stack.back();
        if (top.next < top.names.size()) {
            const std::string name = top.names[top.next++];
            struct stat status {};
            if (::fstatat(top.fd.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
                if (errno != ENOENT) {
                    outcome.failures.push_back({joined(top.location, name), errorText(errno)});
                    top.keepsSomething = true;
                }
                continue;
            }
            if (!S_ISDIR(status.st_mode)) {
                if (::unlinkat(top.fd.get(), name.c_str(), 0) == 0) {
                    removed();
                } else if (errno != ENOENT) {
                    outcome.failures.push_back({joined(top.location, name), errorText(errno)});
                    top.keepsSomething = true;
                }
                continue;
            }
            if (status.st_dev != top.device) {
                outcome.failures.push_back(
                    {joined(top.location, name),
                     "another file system is mounted there; it was left alone"});
                top.keepsSomething = true;
                continue;
            }
            const int parentFd = top.fd.get();
            const std::string parentLocation = top.location;
            if (!enter(parentFd, parentLocation, name, &status)) {
                stack.back().keepsSomething = true;
            }
            continue;
        }
        // Emptied: the folder itself goes, from its own folder.
        Frame done = std::move(stack.back());
        stack.pop_back();
        if (done.keepsSomething) {
            if (!stack.empty()) {
                stack.back().keepsSomething = true;
            }
            continue;
        }
        const int parentFd = stack.empty() ? item.folder.get() : stack.back().fd.get();
        done.fd.reset();
        if (::unlinkat(parentFd, done.name.c_str(), AT_REMOVEDIR) == 0) {
            removed();
        } else {
            outcome.failures.push_back({done.location, errorText(errno)});
            if (!stack.empty()) {
                stack.back().keepsSomething = true;
            }
        }
    }
    if (onProgress) {
        onProgress(outcome.entriesRemoved);
    }
    return outcome;
}

} // namespace brimvale
