#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// System areas that are expected to be unreadable: a folder there that cannot be read is
// skipped and logged like any other, but it does not ask the user for more permissions.
// Prefixes are logical paths (relative to the volume root, no leading "/"). Stateless.
namespace QuietPrefixes {

// macOS's system areas, then the folders of a Linux system that only root can read.
std::vector<std::string> defaults();

// True when `logicalPath` is a prefix itself or lies below one. A prefix ending in "*"
// matches any continuation of the text before it ("tmp/systemd-private-*").
bool contains(const std::vector<std::string>& prefixes, std::string_view logicalPath);

} // namespace QuietPrefixes

} // namespace brimvale
