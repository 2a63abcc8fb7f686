#include "tests/support/TemporaryTree.h"

#include "tests/support/ProgramRun.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace brimvale::testing {
namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("TemporaryTree: " + what + ": " + std::strerror(errno));
}

void writeBytes(int descriptor, std::int64_t bytes) {
    std::vector<char> block(std::size_t{1} << 16, '\x5A');
    while (bytes > 0) {
        const auto chunk = static_cast<std::size_t>(
            std::min<std::int64_t>(bytes, static_cast<std::int64_t>(block.size())));
        const ssize_t written = ::write(descriptor, block.data(), chunk);
        if (written <= 0) {
            fail("write");
        }
        bytes -= written;
    }
}

} // namespace

TemporaryTree::TemporaryTree() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern =
        std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/brimvale-tree-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        fail("mkdtemp " + pattern);
    }
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(pattern.c_str(), nullptr),
                                                         &std::free);
    root_ = resolved ? resolved.get() : pattern;
    if (::chmod(root_.c_str(), 0755) != 0) {
        fail("chmod " + root_);
    }
}

TemporaryTree::~TemporaryTree() {
    // chmod and rm walk any depth relative to open folders; permissions first so that a
    // non-root run can remove folders a test made unreadable.
    try {
        runProgram({"chmod", "-R", "u+rwx", root_});
        runProgram({"rm", "-rf", "--", root_});
    } catch (const std::exception&) {
    }
}

std::string TemporaryTree::location(std::string_view relative) const {
    if (relative.empty()) {
        return root_;
    }
    return root_ + "/" + std::string(relative);
}

void TemporaryTree::makeParents(std::string_view relative) {
    std::size_t slash = relative.find('/');
    while (slash != std::string_view::npos) {
        const std::string parent = location(relative.substr(0, slash));
        if (::mkdir(parent.c_str(), 0755) != 0 && errno != EEXIST) {
            fail("mkdir " + parent);
        }
        slash = relative.find('/', slash + 1);
    }
}

void TemporaryTree::folder(std::string_view relative, mode_t mode) {
    makeParents(relative);
    const std::string path = location(relative);
    if (::mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
        fail("mkdir " + path);
    }
    setMode(relative, mode);
}

void TemporaryTree::file(std::string_view relative, std::int64_t bytes) {
    makeParents(relative);
    const std::string path = location(relative);
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor < 0) {
        fail("create " + path);
    }
    writeBytes(descriptor, bytes);
    ::close(descriptor);
}

void TemporaryTree::sparseFile(std::string_view relative, std::int64_t apparentBytes,
                               std::int64_t writtenBytes) {
    makeParents(relative);
    const std::string path = location(relative);
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor < 0) {
        fail("create " + path);
    }
    if (::lseek(descriptor, apparentBytes - writtenBytes, SEEK_SET) < 0) {
        fail("seek " + path);
    }
    writeBytes(descriptor, writtenBytes);
    ::close(descriptor);
}

void TemporaryTree::hardLink(std::string_view existing, std::string_view link) {
    makeParents(link);
    if (::link(location(existing).c_str(), location(link).c_str()) != 0) {
        fail("link " + location(link));
    }
}

void TemporaryTree::symbolicLink(std::string_view target, std::string_view link) {
    makeParents(link);
    const std::string ownTarget(target);
    if (::symlink(ownTarget.c_str(), location(link).c_str()) != 0) {
        fail("symlink " + location(link));
    }
}

void TemporaryTree::setMode(std::string_view relative, mode_t mode) {
    if (::chmod(location(relative).c_str(), mode) != 0) {
        fail("chmod " + location(relative));
    }
}

void TemporaryTree::manyFiles(std::string_view relative, int count) {
    folder(relative);
    const int folderDescriptor =
        ::open(location(relative).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folderDescriptor < 0) {
        fail("open " + location(relative));
    }
    char name[32];
    for (int i = 0; i < count; ++i) {
        std::snprintf(name, sizeof name, "f%07d", i);
        const int descriptor =
            ::openat(folderDescriptor, name, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        if (descriptor < 0) {
            ::close(folderDescriptor);
            fail("create " + std::string(name));
        }
        ::close(descriptor);
    }
    ::close(folderDescriptor);
}

void TemporaryTree::deepChain(std::string_view relative, int depth, std::string_view name,
                              std::int64_t bottomFileBytes) {
    folder(relative);
    int current = ::open(location(relative).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (current < 0) {
        fail("open " + location(relative));
    }
    const std::string ownName(name);
    for (int level = 0; level < depth; ++level) {
        if (::mkdirat(current, ownName.c_str(), 0755) != 0) {
            ::close(current);
            fail("mkdirat");
        }
        const int next = ::openat(current, ownName.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(current);
        if (next < 0) {
            fail("openat");
        }
        current = next;
    }
    const int bottom = ::openat(current, "bottom.bin", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    ::close(current);
    if (bottom < 0) {
        fail("create bottom.bin");
    }
    writeBytes(bottom, bottomFileBytes);
    ::close(bottom);
}

std::int64_t TemporaryTree::allocatedBytesOfEntriesByDu(std::string_view relative) const {
    const std::string path = location(relative);
    const auto du = runProgram({"du", "-s", "--block-size=1", path});
    const auto folders = runProgram({"find", path, "-type", "d", "-printf", "%b\\n"});
    if (du.exitStatus != 0 || folders.exitStatus != 0) {
        throw std::runtime_error("du or find failed: " + du.err + folders.err);
    }
    std::int64_t total = std::stoll(du.out);
    std::size_t start = 0;
    while (start < folders.out.size()) {
        const std::size_t end = folders.out.find('\n', start);
        total -= std::stoll(folders.out.substr(start, end - start)) * 512;
        start = end + 1;
    }
    return total;
}

} // namespace brimvale::testing
