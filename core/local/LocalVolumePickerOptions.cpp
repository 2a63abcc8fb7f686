#include "core/local/LocalVolumePickerOptions.h"

#include "core/local/PseudoFileSystems.h"
#include "core/local/VolumeSpace.h"
#include "core/model/NameOrder.h"
#include "core/model/SizeFormatter.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <map>
#include <memory>
#include <set>
#include <tuple>

namespace brimvale::LocalVolumePickerOptions {
namespace {

constexpr std::string_view kStartupDiskPath = "/";
constexpr std::string_view kMacDataVolumePath = "/System/Volumes/Data";

constexpr std::array<std::string_view, 14> kNetworkTypes = {
    "nfs",        "nfs4", "cifs",  "smb3",      "smbfs",          "ceph",        "9p",
    "fuse.sshfs", "afs",  "davfs", "glusterfs", "fuse.glusterfs", "fuse.rclone", "lustre"};

// Block-device file systems that are never a place to browse.
constexpr std::array<std::string_view, 2> kHiddenBlockTypes = {"squashfs", "swap"};

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

int rankOf(const Choice& choice) {
    if (choice.scanPath == kStartupDiskPath) {
        return 0;
    }
    if (choice.scanPath == kMacDataVolumePath) {
        return 1;
    }
    return 2;
}

std::string resolvedPath(const std::string& path) {
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr),
                                                         &std::free);
    return resolved ? std::string(resolved.get()) : path;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

std::string decodeHexEscapes(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x' &&
            hexValue(text[i + 2]) >= 0 && hexValue(text[i + 3]) >= 0) {
            decoded.push_back(
                static_cast<char>(hexValue(text[i + 2]) * 16 + hexValue(text[i + 3])));
            i += 3;
        } else {
            decoded.push_back(text[i]);
        }
    }
    return decoded;
}

bool isSubvolumeMount(const MountEntry& mount) {
    // btrfs mounts a subvolume with its path as the root; that is a volume of its own.
    const std::string option = "subvol=" + mount.root;
    const std::string& options = mount.superOptions;
    const auto at = options.find(option);
    return at != std::string::npos && (at == 0 || options[at - 1] == ',') &&
           (at + option.size() == options.size() || options[at + option.size()] == ',');
}

} // namespace

std::optional<std::string> Choice::capacitySummary() const {
    if (notResponding) {
        return std::string("not responding");
    }
    if (!totalBytes || *totalBytes < 1) {
        return std::nullopt;
    }
    const std::string total = formatBytes(*totalBytes) + " total";
    if (!freeBytes || *freeBytes < 0) {
        return total;
    }
    const std::int64_t used = std::max<std::int64_t>(*totalBytes - *freeBytes, 0);
    return total + " \u00B7 " + formatBytes(used) + " used \u00B7 " + formatBytes(*freeBytes) +
           " free";
}

bool isBrowsableMount(const MountEntry& mount) {
    const std::string_view type = mount.fileSystemType;
    if (isPseudoFileSystemTypeName(type)) {
        return false;
    }
    if (std::find(kNetworkTypes.begin(), kNetworkTypes.end(), type) != kNetworkTypes.end()) {
        return true;
    }
    if (std::find(kHiddenBlockTypes.begin(), kHiddenBlockTypes.end(), type) !=
        kHiddenBlockTypes.end()) {
        return false;
    }
    return mount.source.starts_with("/dev/") || type == "zfs";
}

std::vector<Choice> choicesFromSources(const ChoiceSources& sources) {
    const auto capacity = [&](const std::string& path) {
        return sources.capacityStats ? sources.capacityStats(path) : CapacityStats{};
    };
    std::vector<Choice> choices;
    const CapacityStats startup = capacity(std::string(kStartupDiskPath));
    choices.push_back(Choice{.id = "scan:/",
                             .title = "Entire startup disk",
                             .pathLine = "(/)",
                             .scanPath = "/",
                             .totalBytes = startup.total,
                             .freeBytes = startup.free,
                             .notResponding = startup.notResponding});
    std::set<std::tuple<std::uint32_t, std::uint32_t, std::string>> listed;
    std::set<std::string> listedPaths{"/"};
    for (const MountEntry& mount : sources.mounts) {
        if (!isBrowsableMount(mount) || mount.mountPoint.ends_with(" (deleted)")) {
            continue;
        }
        if (mount.root != "/" && !isSubvolumeMount(mount)) {
            continue; // a bind mount of a folder shown elsewhere
        }
        if (!listed.insert({mount.major, mount.minor, mount.root}).second) {
            continue; // the same file system mounted a second time
        }
        if (!listedPaths.insert(mount.mountPoint).second) {
            continue; // the startup disk, or a mount point already offered
        }
        const std::optional<std::string> label =
            sources.labelFor ? sources.labelFor(mount) : std::nullopt;
        const CapacityStats stats = capacity(mount.mountPoint);
        choices.push_back(Choice{.id = "scan:" + mount.mountPoint,
                                 .title = preferredVolumeTitle(
                                     mount.mountPoint,
                                     label ? std::optional<std::string_view>(*label) : std::nullopt,
                                     std::nullopt),
                                 .pathLine = "(" + normalizeScanPath(mount.mountPoint) + ")",
                                 .scanPath = mount.mountPoint,
                                 .totalBytes = stats.total,
                                 .freeBytes = stats.free,
                                 .notResponding = stats.notResponding});
    }
    return sortedChoices(std::move(choices));
}

namespace {

CapacityStats statsOf(const VolumeSpaceAnswer& answer) {
    if (answer.notResponding) {
        return CapacityStats{.notResponding = true};
    }
    if (!answer.space) {
        return {};
    }
    return CapacityStats{.total = answer.space->totalBytes, .free = answer.space->availableBytes};
}

} // namespace

std::vector<Choice> linuxChoices() {
    ChoiceSources sources;
    sources.mounts = MountTable::readCurrent();
    // Every file system is asked at once, so hung mounts cost one wait in all, not one each.
    std::map<std::string, PendingVolumeSpace> pending;
    pending.emplace(std::string(kStartupDiskPath), std::string(kStartupDiskPath));
    for (const MountEntry& mount : sources.mounts) {
        if (isBrowsableMount(mount) && !pending.contains(mount.mountPoint)) {
            pending.emplace(mount.mountPoint, mount.mountPoint);
        }
    }
    const auto deadline = std::chrono::steady_clock::now() + kCapacityWait;
    sources.capacityStats = [&pending, deadline](const std::string& path) {
        const auto found = pending.find(path);
        if (found == pending.end()) {
            return statsOf(volumeSpaceWithin(path, kCapacityWait));
        }
        return statsOf(found->second.wait(deadline));
    };
    const auto labels = labelsByDevice("/dev/disk/by-label");
    sources.labelFor = [&labels](const MountEntry& mount) -> std::optional<std::string> {
        if (labels.empty() || !mount.source.starts_with("/dev/")) {
            return std::nullopt;
        }
        const auto found = labels.find(resolvedPath(mount.source));
        if (found == labels.end()) {
            return std::nullopt;
        }
        return found->second;
    };
    return choicesFromSources(sources);
}

std::vector<Choice> sortedChoices(std::vector<Choice> choices) {
    std::stable_sort(choices.begin(), choices.end(), [](const Choice& a, const Choice& b) {
        const int rankA = rankOf(a);
        const int rankB = rankOf(b);
        if (rankA != rankB) {
            return rankA < rankB;
        }
        return compareNamesForFileManager(a.title, b.title) < 0;
    });
    return choices;
}

std::string normalizeScanPath(std::string_view path) {
    const std::string_view text = trimmed(path);
    if (text.empty() || text == "/") {
        return "/";
    }
    if (text.front() == '/') {
        return std::string(text);
    }
    return "/" + std::string(text);
}

std::string preferredVolumeTitle(std::string_view path,
                                 std::optional<std::string_view> localizedName,
                                 std::optional<std::string_view> volumeName) {
    if (path == kMacDataVolumePath) {
        return "Macintosh HD \u2013 Data (users & apps)";
    }
    if (localizedName && !trimmed(*localizedName).empty()) {
        return std::string(trimmed(*localizedName));
    }
    if (volumeName && !trimmed(*volumeName).empty()) {
        return std::string(trimmed(*volumeName));
    }
    std::string_view rest = path;
    while (rest.size() > 1 && rest.back() == '/') {
        rest.remove_suffix(1);
    }
    const auto slash = rest.rfind('/');
    const std::string_view last = slash == std::string_view::npos ? rest : rest.substr(slash + 1);
    return last.empty() ? std::string(rest.empty() ? "/" : rest) : std::string(last);
}

CapacityStats capacityStats(const std::string& path) {
    return statsOf(volumeSpaceWithin(path, kCapacityWait));
}

std::optional<std::string> choiceIDMatchingSavedPath(std::string_view savedPath,
                                                     const std::vector<Choice>& choices) {
    const std::string wanted = normalizeScanPath(savedPath);
    for (const Choice& choice : choices) {
        if (normalizeScanPath(choice.scanPath) == wanted) {
            return choice.id;
        }
    }
    return std::nullopt;
}

std::map<std::string, std::string> labelsByDevice(const std::string& byLabelFolder) {
    std::map<std::string, std::string> labels;
    DIR* folder = ::opendir(byLabelFolder.c_str());
    if (folder == nullptr) {
        return labels;
    }
    while (const dirent* entry = ::readdir(folder)) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        const std::string link = byLabelFolder + "/" + std::string(name);
        std::unique_ptr<char, decltype(&std::free)> target(::realpath(link.c_str(), nullptr),
                                                           &std::free);
        if (target) {
            labels.emplace(target.get(), decodeHexEscapes(name));
        }
    }
    ::closedir(folder);
    return labels;
}

} // namespace brimvale::LocalVolumePickerOptions
