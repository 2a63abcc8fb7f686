#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// One line of /proc/self/mountinfo, with the kernel's octal escapes (\040 for a space…)
// decoded.
struct MountEntry {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::string root;           // the folder of the file system that is mounted here ("/" = all)
    std::string mountPoint;     // where it is mounted
    std::string fileSystemType; // "ext4", "nfs4", "devtmpfs"…
    std::string source;         // "/dev/sda1", "server:/export"…
    std::string superOptions;   // the file system's own options ("rw,subvol=/@home"…)
};

// The mount table of this process. Parsing is line by line: a line with fewer fields than the
// format has is skipped, never guessed at. Stateless; safe on any thread.
namespace MountTable {

std::vector<MountEntry> parseMountInfo(std::string_view text);
// /proc/self/mountinfo parsed; empty when it cannot be read.
std::vector<MountEntry> readCurrent();
// "\040" → " " and the other three-digit octal escapes of mountinfo.
std::string decodeOctalEscapes(std::string_view field);

} // namespace MountTable

} // namespace brimvale
