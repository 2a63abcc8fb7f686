#pragma once

#include "core/local/MountTable.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// The places a local-disk account can scan: the whole startup disk, then every mounted file
// system a person would browse (disks and partitions, network shares), never kernel file
// systems, memory file systems, snap images or a second mount of something already listed.
// Stateless; every operation is safe on any thread.
namespace LocalVolumePickerOptions {

struct Choice {
    std::string id;       // "scan:" + scanPath
    std::string title;    // the name shown
    std::string pathLine; // "(" + normalised scan path + ")"
    std::string scanPath; // where a scan of this choice starts
    std::optional<std::int64_t> totalBytes;
    std::optional<std::int64_t> freeBytes;
    bool notResponding = false; // the file system did not answer (a hung network or FUSE mount)

    // "<total> total · <used> used · <free> free"; only "<total> total" when the free space is
    // unknown; "not responding" for a file system that did not answer; empty when the total is
    // unknown or below 1 byte.
    std::optional<std::string> capacitySummary() const;

    friend bool operator==(const Choice&, const Choice&) = default;
};

struct CapacityStats {
    std::optional<std::int64_t> total;
    std::optional<std::int64_t> free; // available to an ordinary user
    bool notResponding = false;
};

// What the choices are made from, so that tests can hand in a mount table of their own.
struct ChoiceSources {
    std::vector<MountEntry> mounts;
    std::function<CapacityStats(const std::string& path)> capacityStats;
    // A file system's label, when it has one.
    std::function<std::optional<std::string>(const MountEntry& mount)> labelFor;
};

// The choices of this machine: /proc/self/mountinfo, labels from /dev/disk/by-label,
// capacities from statvfs, asked of every file system at once and waited for at most
// kCapacityWait: a hung mount is listed as not responding.
inline constexpr std::chrono::milliseconds kCapacityWait{1500};
std::vector<Choice> linuxChoices();
std::vector<Choice> choicesFromSources(const ChoiceSources& sources);

// Whether a mounted file system is offered at all: a block device (not a snap's squashfs) or a
// network file system.
bool isBrowsableMount(const MountEntry& mount);

// Rank ("/" first, then macOS's data volume, then the rest), then title in file-manager order.
std::vector<Choice> sortedChoices(std::vector<Choice> choices);

// Trimmed; "" and "/" give "/"; a path without a leading "/" gets one.
std::string normalizeScanPath(std::string_view path);

// The fixed title of macOS's data volume, else the trimmed localized name, else the trimmed
// volume name, else the last component of the path.
std::string preferredVolumeTitle(std::string_view path,
                                 std::optional<std::string_view> localizedName,
                                 std::optional<std::string_view> volumeName);

// Total and available bytes of the file system holding `path`; each empty when unknown.
// Waits at most kCapacityWait.
CapacityStats capacityStats(const std::string& path);

// The id of the first choice whose normalised scan path equals the normalised saved path.
std::optional<std::string> choiceIDMatchingSavedPath(std::string_view savedPath,
                                                     const std::vector<Choice>& choices);

// Device path (symbolic links resolved, such as /dev/sda1) → label, from the links in
// `byLabelFolder` whose names escape characters as \xHH.
std::map<std::string, std::string> labelsByDevice(const std::string& byLabelFolder);

} // namespace LocalVolumePickerOptions

} // namespace brimvale
