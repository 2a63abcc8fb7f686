#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace brimvale::testing {

// A tree of real files made by a test in a fresh folder under $TMPDIR (or /tmp), removed with
// everything in it when the object goes, whatever permissions the test left. Relative paths
// are raw bytes (any name the file system takes, not only UTF-8). The root is readable and
// searchable by every user, so a test may scan it as another user. Not thread-safe; one
// test's helper.
class TemporaryTree {
public:
    TemporaryTree();
    ~TemporaryTree();
    TemporaryTree(const TemporaryTree&) = delete;
    TemporaryTree& operator=(const TemporaryTree&) = delete;

    // The absolute location of the root, resolved (no symbolic links).
    const std::string& root() const { return root_; }
    // root() + "/" + relative; the root itself for "".
    std::string location(std::string_view relative) const;

    // Each call makes missing parent folders (mode 0755) first.
    void folder(std::string_view relative, mode_t mode = 0755);
    // A file of `bytes` bytes of data.
    void file(std::string_view relative, std::int64_t bytes = 0);
    // A file that is `apparentBytes` long but has data only in its last `writtenBytes`.
    void sparseFile(std::string_view relative, std::int64_t apparentBytes,
                    std::int64_t writtenBytes);
    void hardLink(std::string_view existing, std::string_view link);
    void symbolicLink(std::string_view target, std::string_view link);
    void setMode(std::string_view relative, mode_t mode);
    // `count` empty files named f0000000… in the folder `relative`.
    void manyFiles(std::string_view relative, int count);
    // `depth` nested folders named `name` below `relative`, made relative to each other so no
    // path limit applies, with a file of `bottomFileBytes` in the deepest one.
    void deepChain(std::string_view relative, int depth, std::string_view name,
                   std::int64_t bottomFileBytes);

    // What `du -s --block-size=1` reports for `relative` minus the blocks of the folders
    // themselves: the allocated bytes of every other entry, each hard-linked file once.
    std::int64_t allocatedBytesOfEntriesByDu(std::string_view relative = "") const;

private:
    void makeParents(std::string_view relative);

    std::string root_;
};

} // namespace brimvale::testing
