#include "core/rclone/RclonePathResolver.h"

#include <filesystem>
#include <system_error>

#ifndef BRIMVALE_INSTALL_PREFIX
#define BRIMVALE_INSTALL_PREFIX "/usr/local"
#endif

namespace brimvale {
namespace {

constexpr const char* kBundledRelativePath = "share/brimvale/rclone";

bool isExistingFile(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

std::string folderOfRunningExecutable() {
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : executable.parent_path().string();
}

} // namespace

const std::vector<std::string>& standardFixedRclonePaths() {
    static const std::vector<std::string> paths = {"/opt/homebrew/bin/rclone",
                                                   "/usr/local/bin/rclone", "/usr/bin/rclone"};
    return paths;
}

RcloneSearchLocations RcloneSearchLocations::standard() {
    return forExecutableFolder(folderOfRunningExecutable());
}

RcloneSearchLocations RcloneSearchLocations::forExecutableFolder(const std::string& folder) {
    RcloneSearchLocations locations;
    locations.bundledCopies.push_back(std::string(BRIMVALE_INSTALL_PREFIX) + "/" +
                                      kBundledRelativePath);
    if (!folder.empty()) {
        locations.bundledCopies.push_back(folder + "/../" + kBundledRelativePath);
    }
    locations.executableFolder = folder;
    locations.fixedPaths = standardFixedRclonePaths();
    return locations;
}

std::optional<std::string> resolveRclonePath(const RcloneSearchLocations& locations) {
    for (const auto& bundled : locations.bundledCopies) {
        if (isExistingFile(bundled)) {
            return std::filesystem::path(bundled).lexically_normal().string();
        }
    }
    if (!locations.executableFolder.empty()) {
        const std::string beside = locations.executableFolder + "/rclone";
        if (isExistingFile(beside)) {
            return beside;
        }
    }
    for (const auto& fixed : locations.fixedPaths) {
        if (isExistingFile(fixed)) {
            return fixed;
        }
    }
    return std::nullopt;
}

} // namespace brimvale
