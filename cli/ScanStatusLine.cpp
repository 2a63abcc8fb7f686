#include "cli/ScanStatusLine.h"

#include "cli/DisplayText.h"
#include "core/model/SizeFormatter.h"

#include <algorithm>
#include <cmath>

namespace brimvale::cli {

ScanStatusLine::ScanStatusLine(std::ostream& err, bool enabled)
    : err_(err)
    , enabled_(enabled) {}

bool ScanStatusLine::due() {
    const auto now = std::chrono::steady_clock::now();
    if (shown_ && now - lastShown_ < std::chrono::milliseconds(100)) {
        return false;
    }
    lastShown_ = now;
    return true;
}

void ScanStatusLine::write(const std::string& text) {
    err_ << "\r\x1b[2K" << text << std::flush;
    shown_ = true;
}

void ScanStatusLine::showScanning(const ScanProgress& progress) {
    if (!enabled_) {
        return;
    }
    // Every state the coordinator publishes is a sample, shown or not, so the average is true.
    rate_.record(progress.itemsScanned(), std::chrono::steady_clock::now());
    if (!due()) {
        return;
    }
    write("Scanning\u2026 " + groupedCount(progress.itemsScanned()) + " items \u00B7 " +
          groupedCount(progress.foldersScanned) + " folders \u00B7 " +
          formatBytes(progress.bytesAccountedFor) + " \u00B7 " +
          groupedCount(roundedRate(rate_.smoothedPerSecond)) + "/s (1-min avg)");
}

void ScanStatusLine::showLoading(double fraction) {
    if (!enabled_ || !due()) {
        return;
    }
    const int percent = static_cast<int>(std::lround(std::clamp(fraction, 0.0, 1.0) * 100.0));
    write("Loading saved scan\u2026 " + std::to_string(percent) + "%");
}

void ScanStatusLine::showText(const std::string& text) {
    if (!enabled_) {
        return;
    }
    lastShown_ = std::chrono::steady_clock::now();
    write(text);
}

void ScanStatusLine::erase() {
    if (shown_) {
        err_ << "\r\x1b[2K" << std::flush;
        shown_ = false;
    }
}

} // namespace brimvale::cli
