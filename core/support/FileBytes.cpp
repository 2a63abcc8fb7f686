#include "core/support/FileBytes.h"

#include "core/support/UniqueFd.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace brimvale {
namespace {

[[noreturn]] void throwLastError(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void writeAll(int descriptor, std::span<const std::uint8_t> data, const std::string& path) {
    std::size_t written = 0;
    while (written < data.size()) {
        const ssize_t count = ::write(descriptor, data.data() + written, data.size() - written);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            throwLastError("cannot write " + path);
        }
        written += static_cast<std::size_t>(count);
    }
}

std::string folderOf(const std::string& path) {
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

constexpr std::string_view kTemporaryPrefix = ".brimvale-";
constexpr std::string_view kTemporarySuffix = ".tmp";

bool isTemporaryName(std::string_view name) {
    constexpr std::size_t kRandomPart = 6; // mkostemps' XXXXXX
    return name.size() == kTemporaryPrefix.size() + kRandomPart + kTemporarySuffix.size() &&
           name.starts_with(kTemporaryPrefix) && name.ends_with(kTemporarySuffix);
}

bool sameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// A new temporary file in `folder`, locked. The cleanup of another process may remove a file
// between its creation and its lock; a file no longer at its name is given up and another made.
UniqueFd createLockedTemporaryFile(const std::string& folder, std::string& temporaryPath) {
    for (;;) {
        temporaryPath =
            folder + "/" + std::string(kTemporaryPrefix) + "XXXXXX" + std::string(kTemporarySuffix);
        UniqueFd file(::mkostemps(temporaryPath.data(), static_cast<int>(kTemporarySuffix.size()),
                                  O_CLOEXEC));
        if (!file.valid()) {
            throwLastError("cannot create a file in " + folder);
        }
        if (::flock(file.get(), LOCK_EX) != 0) {
            const int error = errno;
            ::unlink(temporaryPath.c_str());
            throw std::system_error(error, std::generic_category(), "cannot lock " + temporaryPath);
        }
        struct stat opened {};
        struct stat named {};
        if (::fstat(file.get(), &opened) == 0 && ::lstat(temporaryPath.c_str(), &named) == 0 &&
            sameFile(opened, named)) {
            return file;
        }
    }
}

} // namespace

FileBytes readFileBytes(const std::string& path) {
    // O_NONBLOCK: opening a FIFO must not wait for a writer; it is refused just below.
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.valid()) {
        throwLastError("cannot open " + path);
    }
    struct stat info {};
    if (::fstat(file.get(), &info) != 0) {
        throwLastError("cannot read the attributes of " + path);
    }
    if (S_ISDIR(info.st_mode)) {
        throw std::system_error(EISDIR, std::generic_category(), path + " is a folder, not a file");
    }
    if (!S_ISREG(info.st_mode)) {
        throw std::system_error(EINVAL, std::generic_category(),
                                path + " is not a regular file (a device, a pipe or a socket)");
    }
    FileBytes result;
    result.modifiedUnixSeconds =
        static_cast<double>(info.st_mtim.tv_sec) + static_cast<double>(info.st_mtim.tv_nsec) / 1e9;
    auto& bytes = result.bytes;
    bytes.resize(static_cast<std::size_t>(info.st_size));
    std::size_t filled = 0;
    for (;;) {
        if (filled == bytes.size()) {
            bytes.resize(bytes.size() + 65536); // the file grew since fstat
        }
        const ssize_t count = ::read(file.get(), bytes.data() + filled, bytes.size() - filled);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            throwLastError("cannot read " + path);
        }
        if (count == 0) {
            break;
        }
        filled += static_cast<std::size_t>(count);
    }
    bytes.resize(filled);
    return result;
}

void writeFileAtomically(const std::string& path, std::span<const std::uint8_t> data, mode_t mode) {
    writeFileAtomically(path, mode, [&](const FileAppender& append) { append(data); });
}

void writeFileAtomically(const std::string& path, mode_t mode,
                         const std::function<void(const FileAppender&)>& produce) {
    const std::string folder = folderOf(path);
    std::string temporaryPath;
    UniqueFd file = createLockedTemporaryFile(folder, temporaryPath);
    try {
        if (::fchmod(file.get(), mode) != 0) {
            throwLastError("cannot set the permissions of " + temporaryPath);
        }
        const int descriptor = file.get();
        produce([&](std::span<const std::uint8_t> bytes) { writeAll(descriptor, bytes, path); });
        if (::fsync(file.get()) != 0) {
            throwLastError("cannot flush " + path);
        }
        // Renamed while still locked, so a cleanup never takes a file that is about to land.
        if (::rename(temporaryPath.c_str(), path.c_str()) != 0) {
            throwLastError("cannot replace " + path);
        }
        file.reset();
    } catch (...) {
        ::unlink(temporaryPath.c_str());
        throw;
    }
    if (const UniqueFd directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        directory.valid()) {
        ::fsync(directory.get()); // makes the rename itself durable
    }
}

int removeAbandonedTemporaryFiles(const std::string& folder) {
    DIR* listing = ::opendir(folder.c_str());
    if (listing == nullptr) {
        return 0;
    }
    std::vector<std::string> candidates;
    while (const dirent* entry = ::readdir(listing)) {
        if (isTemporaryName(entry->d_name)) {
            candidates.emplace_back(entry->d_name);
        }
    }
    ::closedir(listing);
    int removed = 0;
    for (const auto& name : candidates) {
        const std::string path = folder + "/" + name;
        const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        struct stat opened {};
        if (!file.valid() || ::fstat(file.get(), &opened) != 0 || !S_ISREG(opened.st_mode)) {
            continue;
        }
        if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
            continue; // a live write holds it
        }
        // Still the file that was locked (not renamed away and replaced meanwhile).
        struct stat named {};
        if (::lstat(path.c_str(), &named) == 0 && sameFile(opened, named) &&
            ::unlink(path.c_str()) == 0) {
            ++removed;
        }
    }
    return removed;
}

} // namespace brimvale
