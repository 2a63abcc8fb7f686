#pragma once

#include <cstdint>
#include <string_view>

namespace brimvale {

// Where a file lives on this machine: its device and inode numbers. Two names with one identity
// are one file (a hard link) or one folder (a bind mount).
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

struct FileIdentityHash {
    std::size_t operator()(const FileIdentity& identity) const noexcept {
        // Inodes are dense small numbers; mix so that neighbours spread over the table.
        std::uint64_t key = identity.inode * 0x9E3779B97F4A7C15ULL ^ identity.device;
        key ^= key >> 29;
        return static_cast<std::size_t>(key);
    }
};

// One entry of a folder as read. `name` is the raw bytes of the entry (not necessarily UTF-8)
// and is valid only during the call that hands the entry over. Value type.
struct DirEntry {
    std::string_view name;
    bool isDirectory = false;
    bool isSymbolicLink = false;
    // Space on disk: st_blocks * 512. Folders report 0; their size is their children's sum.
    std::int64_t allocatedSize = 0;
    // Modification time in seconds since the Unix epoch.
    double modifiedUnixSeconds = 0;
    FileIdentity identity;
    std::uint64_t linkCount = 1;
};

} // namespace brimvale
