#include "core/local/PseudoFileSystems.h"

#include "core/local/MountTable.h"

#include <algorithm>
#include <array>
#include <sys/sysmacros.h>

#if defined(__linux__)
#include <sys/vfs.h>
#endif

namespace brimvale {
namespace {

// Values from linux/magic.h, spelled out so the list does not depend on kernel headers.
constexpr std::array<std::uint64_t, 20> kPseudoMagics = {
    0x9fa0,     // proc
    0x62656572, // sysfs
    0x1cd1,     // devpts
    0x27e0eb,   // cgroup
    0x63677270, // cgroup2
    0x73636673, // securityfs
    0x64626720, // debugfs
    0x74726163, // tracefs
    0x62656570, // configfs
    0x6165676c, // pstore
    0xcafe4a11, // bpf
    0x19800202, // mqueue
    0x958458f6, // hugetlbfs
    0x42494e4d, // binfmt_misc
    0xde5e81e4, // efivarfs
    0x6e736673, // nsfs
    0x65735543, // fusectl
    0xf97cff8c, // selinuxfs
    0x43415d53, // smackfs
    0x67596969, // rpc_pipefs
};

constexpr std::uint64_t kTmpfsMagic = 0x01021994;
constexpr std::uint64_t kRamfsMagic = 0x858458f6;

constexpr std::array<std::string_view, 21> kPseudoTypeNames = {
    "proc",        "sysfs",    "devtmpfs", "devpts",  "cgroup",    "cgroup2", "securityfs",
    "debugfs",     "tracefs",  "configfs", "pstore",  "bpf",       "mqueue",  "hugetlbfs",
    "binfmt_misc", "efivarfs", "nsfs",     "fusectl", "selinuxfs", "smackfs", "rpc_pipefs"};

} // namespace

bool isPseudoFileSystemMagic(std::uint64_t magic) {
    return std::find(kPseudoMagics.begin(), kPseudoMagics.end(), magic) != kPseudoMagics.end();
}

bool isPseudoFileSystemTypeName(std::string_view typeName) {
    return std::find(kPseudoTypeNames.begin(), kPseudoTypeNames.end(), typeName) !=
           kPseudoTypeNames.end();
}

bool folderIsOnPseudoFileSystem(int descriptor, std::uint64_t device) {
#if defined(__linux__)
    struct statfs status {};
    if (::fstatfs(descriptor, &status) != 0) {
        return false;
    }
    const auto magic = static_cast<std::uint64_t>(static_cast<std::uint32_t>(status.f_type));
    if (isPseudoFileSystemMagic(magic)) {
        return true;
    }
    if (magic != kTmpfsMagic && magic != kRamfsMagic) {
        return false;
    }
    const auto deviceMajor = static_cast<std::uint32_t>(major(static_cast<dev_t>(device)));
    const auto deviceMinor = static_cast<std::uint32_t>(minor(static_cast<dev_t>(device)));
    for (const auto& mount : MountTable::readCurrent()) {
        if (mount.major == deviceMajor && mount.minor == deviceMinor) {
            return mount.fileSystemType == "devtmpfs";
        }
    }
    return false;
#else
    (void)descriptor;
    (void)device;
    return false;
#endif
}

} // namespace brimvale
