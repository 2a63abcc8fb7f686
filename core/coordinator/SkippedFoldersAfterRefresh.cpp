#include "core/coordinator/SkippedFoldersAfterRefresh.h"

namespace brimvale {

std::vector<SkippedFolder> skippedAfterRefresh(const std::vector<SkippedFolder>& before,
                                               const std::vector<SkippedFolder>& fromRefresh,
                                               const std::string& folderPath, bool isLocal) {
    std::string folder = folderPath;
    if (isLocal && !folder.starts_with('/')) {
        folder.insert(folder.begin(), '/');
    }
    while (folder.size() > 1 && folder.ends_with('/')) {
        folder.pop_back();
    }
    const auto within = [&](const std::string& location) {
        return location == folder || folder == "/" ||
               (location.starts_with(folder) && location[folder.size()] == '/');
    };
    std::vector<SkippedFolder> after;
    for (const auto& unread : before) {
        if (!within(unread.location)) {
            after.push_back(unread);
        }
    }
    for (SkippedFolder unread : fromRefresh) {
        if (!isLocal) {
            unread.location = unread.location == "/" ? folder : folder + unread.location;
        }
        after.push_back(std::move(unread));
    }
    return after;
}

} // namespace brimvale
