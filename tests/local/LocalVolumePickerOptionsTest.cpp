#include "core/local/LocalVolumePickerOptions.h"

#include "core/local/MountTable.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

namespace brimvale {
namespace {

using Choice = LocalVolumePickerOptions::Choice;
using LocalVolumePickerOptions::CapacityStats;

// A laptop with a separate /home, a USB stick whose mount point has a space, an NFS share,
// and everything a real mount table also holds that is not a place to browse.
constexpr std::string_view kMountInfo =
    "22 1 259:2 / / rw,relatime shared:1 - ext4 /dev/nvme0n1p2 rw,errors=remount-ro\n"
    "23 22 0:21 / /proc rw,nosuid shared:12 - proc proc rw\n"
    "24 22 0:22 / /sys rw,nosuid shared:2 - sysfs sysfs rw\n"
    "25 22 0:5 / /dev rw,nosuid shared:8 - devtmpfs udev rw,size=8000k\n"
    "26 25 0:23 / /dev/pts rw shared:9 - devpts devpts rw,mode=600\n"
    "27 22 0:24 / /run rw,nosuid shared:5 - tmpfs tmpfs rw,size=1600k\n"
    "28 24 0:26 / /sys/fs/cgroup rw shared:4 - cgroup2 cgroup2 rw\n"
    "29 22 259:1 / /boot/efi rw,relatime shared:30 - vfat /dev/nvme0n1p1 rw,fmask=0077\n"
    "30 22 259:3 / /home rw,relatime shared:31 - ext4 /dev/nvme0n1p3 rw\n"
    "31 22 7:0 / /snap/core22/1380 ro,nodev,relatime shared:32 - squashfs /dev/loop0 ro\n"
    "32 22 8:17 / /media/alice/USB\\040STICK rw,nosuid shared:33 - vfat /dev/sdb1 rw\n"
    "33 22 0:50 / /mnt/share rw,relatime shared:34 - nfs4 nas:/export/share rw,vers=4.2\n"
    "34 22 259:3 /alice/projects /srv/projects rw shared:31 - ext4 /dev/nvme0n1p3 rw\n"
    "35 22 259:3 / /mnt/home-again rw shared:31 - ext4 /dev/nvme0n1p3 rw\n"
    "36 22 0:60 / /var/lib/docker/overlay2/x/merged rw - overlay overlay rw,lowerdir=/a\n"
    "37 22 0:61 /@data /data rw - btrfs /dev/sdc1 rw,subvolid=257,subvol=/@data\n"
    "38 22 0:61 / /mnt/btrfs-top rw - btrfs /dev/sdc1 rw,subvolid=5,subvol=/\n"
    "39 22 0:62 / /mnt/gone\\040(deleted) rw - ext4 /dev/sdd1 rw\n"
    "40 22 0:63 / /run/user/1000/gvfs rw - fuse.gvfsd-fuse gvfsd-fuse rw\n"
    "41 22 0:64 / /mnt/remote rw - fuse.sshfs alice@host:/ rw\n"
    "broken line\n"
    "42 22 8:33 / /mnt/short rw\n";

LocalVolumePickerOptions::ChoiceSources fixtureSources() {
    LocalVolumePickerOptions::ChoiceSources sources;
    sources.mounts = MountTable::parseMountInfo(kMountInfo);
    sources.capacityStats = [](const std::string& path) -> CapacityStats {
        if (path == "/") {
            return {.total = 500'000'000'000, .free = 120'000'000'000};
        }
        if (path == "/mnt/share") {
            return {.total = 4'000'000'000'000, .free = std::nullopt};
        }
        if (path == "/media/alice/USB STICK") {
            return {.total = 32'000'000'000, .free = 40'000'000'000};
        }
        return {};
    };
    sources.labelFor = [](const MountEntry& mount) -> std::optional<std::string> {
        if (mount.source == "/dev/nvme0n1p3") {
            return "  Home  ";
        }
        if (mount.source == "/dev/sdb1") {
            return "USB STICK";
        }
        return std::nullopt;
    };
    return sources;
}

TEST(LocalVolumePickerOptions, MountTableBecomesBrowsableChoicesInOrder) {
    const auto mounts = MountTable::parseMountInfo(kMountInfo);
    ASSERT_EQ(mounts.size(), 20u); // the two malformed lines are skipped
    EXPECT_EQ(mounts[10].mountPoint, "/media/alice/USB STICK");
    EXPECT_EQ(mounts[10].major, 8u);
    EXPECT_EQ(mounts[10].minor, 17u);
    EXPECT_EQ(mounts[0].superOptions, "rw,errors=remount-ro");

    const auto choices = LocalVolumePickerOptions::choicesFromSources(fixtureSources());
    std::vector<std::string> seen;
    for (const auto& choice : choices) {
        seen.push_back(choice.title + " " + choice.pathLine);
    }
    EXPECT_EQ(seen, (std::vector<std::string>{
                        "Entire startup disk (/)", "btrfs-top (/mnt/btrfs-top)", "data (/data)",
                        "efi (/boot/efi)", "Home (/home)", "remote (/mnt/remote)",
                        "share (/mnt/share)", "USB STICK (/media/alice/USB STICK)"}));
    EXPECT_EQ(choices[0].id, "scan:/");
    EXPECT_EQ(choices[0].scanPath, "/");
    EXPECT_EQ(choices[0].capacitySummary(), "500 GB total \u00B7 380 GB used \u00B7 120 GB free");
    const auto& usb = choices.back();
    EXPECT_EQ(usb.id, "scan:/media/alice/USB STICK");
    // More free than total: used is zero, never negative.
    EXPECT_EQ(usb.capacitySummary(), "32 GB total \u00B7 0 bytes used \u00B7 40 GB free");
    EXPECT_EQ(choices[6].capacitySummary(), "4 TB total");
    EXPECT_EQ(choices[1].capacitySummary(), std::nullopt);

    // Only the startup disk when nothing else is mounted.
    LocalVolumePickerOptions::ChoiceSources bare;
    const auto alone = LocalVolumePickerOptions::choicesFromSources(bare);
    ASSERT_EQ(alone.size(), 1u);
    EXPECT_EQ(alone[0].title, "Entire startup disk");
    EXPECT_EQ(alone[0].pathLine, "(/)");
    EXPECT_FALSE(alone[0].capacitySummary());

    // This machine: the startup disk first, with its capacity.
    const auto here = LocalVolumePickerOptions::linuxChoices();
    ASSERT_FALSE(here.empty());
    EXPECT_EQ(here[0].id, "scan:/");
    EXPECT_TRUE(here[0].capacitySummary());
}

TEST(LocalVolumePickerOptions, OrderTitlesAndSavedPaths) {
    std::vector<Choice> choices = {
        {.id = "scan:/mnt/b10", .title = "Disk 10", .scanPath = "/mnt/b10"},
        {.id = "scan:/System/Volumes/Data", .title = "zzz", .scanPath = "/System/Volumes/Data"},
        {.id = "scan:/mnt/b9", .title = "disk 9", .scanPath = "/mnt/b9"},
        {.id = "scan:/", .title = "Entire startup disk", .scanPath = "/"},
        {.id = "scan:/Volumes/Backup", .title = "Backup", .scanPath = "/Volumes/Backup"},
    };
    const auto sorted = LocalVolumePickerOptions::sortedChoices(choices);
    std::vector<std::string> ids;
    for (const auto& choice : sorted) {
        ids.push_back(choice.id);
    }
    EXPECT_EQ(ids,
              (std::vector<std::string>{"scan:/", "scan:/System/Volumes/Data",
                                        "scan:/Volumes/Backup", "scan:/mnt/b9", "scan:/mnt/b10"}));

    using LocalVolumePickerOptions::normalizeScanPath;
    EXPECT_EQ(normalizeScanPath(""), "/");
    EXPECT_EQ(normalizeScanPath(" \n\t"), "/");
    EXPECT_EQ(normalizeScanPath(" / "), "/");
    EXPECT_EQ(normalizeScanPath("Volumes/Backup"), "/Volumes/Backup");
    EXPECT_EQ(normalizeScanPath("\t/Volumes/Backup\n"), "/Volumes/Backup");

    using LocalVolumePickerOptions::choiceIDMatchingSavedPath;
    EXPECT_EQ(choiceIDMatchingSavedPath("  /Volumes/Backup  ", choices), "scan:/Volumes/Backup");
    EXPECT_EQ(choiceIDMatchingSavedPath("Volumes/Backup", choices), "scan:/Volumes/Backup");
    EXPECT_EQ(choiceIDMatchingSavedPath("", choices), "scan:/");
    EXPECT_EQ(choiceIDMatchingSavedPath("/Volumes/Backup/Photos", choices), std::nullopt);

    using LocalVolumePickerOptions::preferredVolumeTitle;
    EXPECT_EQ(preferredVolumeTitle("/System/Volumes/Data", "Data", "Data"),
              "Macintosh HD \u2013 Data (users & apps)");
    EXPECT_EQ(preferredVolumeTitle("/mnt/x", " Photos\n", "Vol"), "Photos");
    EXPECT_EQ(preferredVolumeTitle("/mnt/x", " ", "  Vol "), "Vol");
    EXPECT_EQ(preferredVolumeTitle("/media/alice/USB/", std::nullopt, std::nullopt), "USB");
    EXPECT_EQ(preferredVolumeTitle("/", std::nullopt, std::nullopt), "/");

    Choice unknown{.totalBytes = 0, .freeBytes = 0};
    EXPECT_FALSE(unknown.capacitySummary());
    Choice negativeFree{.totalBytes = 1'000, .freeBytes = -1};
    EXPECT_EQ(negativeFree.capacitySummary(), "1 KB total");
}

TEST(LocalVolumePickerOptions, LabelsFromLinksWithEscapedNames) {
    testing::TemporaryTree tree;
    tree.file("dev/sda1");
    tree.file("dev/sdb2");
    tree.symbolicLink("../dev/sda1", "by-label/My\\x20Disk");
    tree.symbolicLink("../dev/sdb2", "by-label/plain");
    tree.symbolicLink("../dev/missing", "by-label/dangling");
    const auto labels = LocalVolumePickerOptions::labelsByDevice(tree.location("by-label"));
    ASSERT_EQ(labels.size(), 2u);
    EXPECT_EQ(labels.at(tree.location("dev/sda1")), "My Disk");
    EXPECT_EQ(labels.at(tree.location("dev/sdb2")), "plain");
    EXPECT_TRUE(LocalVolumePickerOptions::labelsByDevice(tree.location("nothing")).empty());
    EXPECT_EQ(MountTable::decodeOctalEscapes("a\\040b\\134c\\9"), "a b\\c\\9");
}

} // namespace
} // namespace brimvale
