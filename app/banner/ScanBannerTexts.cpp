#include "app/banner/ScanBannerTexts.h"

#include "core/model/ScanItemsRateEMA.h"
#include "core/model/SizeFormatter.h"

#include <cinttypes>
#include <cstdio>

namespace brimvale::ScanBannerTexts {
namespace {

std::string decimal(std::int64_t value) {
    char text[32];
    std::snprintf(text, sizeof text, "%lld", static_cast<long long>(value));
    return text;
}

// Thousands separated with commas, as the counters read best at a glance.
std::string grouped(std::int64_t value) {
    std::string digits = decimal(value);
    const std::size_t start = digits.front() == '-' ? 1 : 0;
    for (std::ptrdiff_t position = static_cast<std::ptrdiff_t>(digits.size()) - 3;
         position > static_cast<std::ptrdiff_t>(start); position -= 3) {
        digits.insert(static_cast<std::size_t>(position), ",");
    }
    return digits;
}

} // namespace

std::string rateText(double perSecond) {
    return decimal(roundedRate(perSecond)) + "/s";
}

std::optional<std::string> currentRateText(double instantPerSecond) {
    if (!(instantPerSecond > 0.5)) {
        return std::nullopt;
    }
    return "Current " + decimal(roundedRate(instantPerSecond)) + "/s";
}

std::string summaryText(const ScanProgress& progress) {
    return "Scan progress, " + decimal(progress.itemsScanned()) + " items, " +
           decimal(progress.filesScanned) + " files, " + decimal(progress.foldersScanned) +
           " folders, " + formatBytes(progress.bytesAccountedFor) + " accounted";
}

std::string countText(std::int64_t count, const char* unit) {
    return grouped(count) + " " + unit;
}

} // namespace brimvale::ScanBannerTexts
