#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace brimvale::cli {

// Texts for people from raw bytes and numbers. Stateless; any thread.

// `raw` for a terminal: each byte that is not valid UTF-8, and each control character
// (a newline in a file name…), becomes U+FFFD, so one name stays on one line.
std::string displayText(std::string_view raw);

// 1234567 → "1,234,567".
std::string groupedCount(std::int64_t count);

// How long ago something happened, for a saved scan: "just now", "1 minute ago",
// "3 hours ago", "2 days ago", "5 months ago", "2 years ago". A time in the future (a clock
// that moved back) is "just now".
std::string relativeAge(double secondsAgo);

} // namespace brimvale::cli
