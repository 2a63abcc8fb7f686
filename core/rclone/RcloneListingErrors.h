#pragma once

#include "core/model/SkippedFolder.h"

#include <string_view>
#include <vector>

namespace brimvale {

// The folders a recursive listing could not read, from rclone's standard error. rclone goes on
// past such a folder, logs a line such as
//   2024/05/01 10:00:00 ERROR : b/c: failed to open directory "b/c": open …: permission denied
//   2024/05/01 10:00:00 ERROR : b/c: error listing: …
// and exits with status 6 at the end. Each ERROR line naming an item becomes one SkippedFolder
// whose location is that item's path below the listed folder, with a leading "/" ("/" for the
// listed folder itself), and whose reason is the rest of the line. Lines without an item (the
// closing "Failed to lsjson" summary, notices, debug output) are left out. The same folder
// reported twice is kept once. Pure.
std::vector<SkippedFolder> unreadableFoldersInListingLog(std::string_view standardError);

} // namespace brimvale
