#pragma once

#include <cstdint>
#include <string_view>

namespace brimvale {

// Kernel file systems that hold no stored data (proc, sysfs, devtmpfs, cgroup…): a scan never
// descends into them. Decided by the file system type, never by path. Stateless; any thread.

// True for the statfs f_type of a kernel file system.
bool isPseudoFileSystemMagic(std::uint64_t magic);
// True for a mount table type name of a kernel file system ("proc", "devtmpfs"…).
bool isPseudoFileSystemTypeName(std::string_view typeName);
// True when the open folder `descriptor`, on device `device`, is on a kernel file system.
// devtmpfs reports tmpfs's f_type, so for that type the mount table's type name decides.
bool folderIsOnPseudoFileSystem(int descriptor, std::uint64_t device);

} // namespace brimvale
