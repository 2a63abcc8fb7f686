#include "core/support/FileBytes.h"

#include "core/support/UniqueFd.h"

#include <cerrno>
#include <fcntl.h>
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

} // namespace

FileBytes readFileBytes(const std::string& path) {
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
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
    FileBytes result;
    result.modifiedUnixSeconds =
        static_cast<double>(info.st_mtim.tv_sec) + static_cast<double>(info.st_mtim.tv_nsec) / 1e9;
    auto& bytes = result.bytes;
    bytes.resize(S_ISREG(info.st_mode) ? static_cast<std::size_t>(info.st_size) : 0);
    std::size_t filled = 0;
    for (;;) {
        if (filled == bytes.size()) {
            bytes.resize(bytes.size() + 65536); // the file grew since fstat, or is a pipe
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
    const std::string folder = folderOf(path);
    const std::string fileName = path.substr(path.find_last_of('/') + 1);
    std::string temporaryPath = folder + "/." + fileName + ".XXXXXX";
    UniqueFd file(::mkostemp(temporaryPath.data(), O_CLOEXEC));
    if (!file.valid()) {
        throwLastError("cannot create a file in " + folder);
    }
    try {
        if (::fchmod(file.get(), mode) != 0) {
            throwLastError("cannot set the permissions of " + temporaryPath);
        }
        writeAll(file.get(), data, path);
        if (::fsync(file.get()) != 0) {
            throwLastError("cannot flush " + path);
        }
        file.reset();
        if (::rename(temporaryPath.c_str(), path.c_str()) != 0) {
            throwLastError("cannot replace " + path);
        }
    } catch (...) {
        ::unlink(temporaryPath.c_str());
        throw;
    }
    if (const UniqueFd directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        directory.valid()) {
        ::fsync(directory.get()); // makes the rename itself durable
    }
}

} // namespace brimvale
