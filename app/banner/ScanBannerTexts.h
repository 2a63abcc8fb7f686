#pragma once

#include "core/model/ScanProgress.h"

#include <optional>
#include <string>

namespace brimvale::ScanBannerTexts {

// The texts of the scan progress banner. Pure functions.

// The average rate: the rounded rate followed by "/s" ("9/s").
std::string rateText(double perSecond);
// "Current <n>/s" when the current rate is above 0.5 items per second; else nothing.
std::optional<std::string> currentRateText(double instantPerSecond);
// The compact strip's one-line summary: "Scan progress, 1200 items, 1000 files, 200 folders,
// 5.1 MB accounted".
std::string summaryText(const ScanProgress& progress);
// A count with its unit, as the compact strip shows it: "1,200 items", "1 folders" (the unit
// never changes with the number, matching the summary).
std::string countText(std::int64_t count, const char* unit);

} // namespace brimvale::ScanBannerTexts
