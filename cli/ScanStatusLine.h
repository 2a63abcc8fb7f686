#pragma once

#include "core/model/ScanItemsRateEMA.h"
#include "core/model/ScanProgress.h"

#include <chrono>
#include <ostream>
#include <string>

namespace brimvale::cli {

// The live status line of a long command on a terminal: rewritten in place, at most ten times
// a second, and erased before the result is printed. Disabled, it prints nothing.
class ScanStatusLine {
public:
    ScanStatusLine(std::ostream& err, bool enabled);

    // "Scanning… 12,345 items · 1,234 folders · 1.2 GB · 9,876/s (1-min avg)".
    void showScanning(const ScanProgress& progress);
    // "Loading saved scan… 42%".
    void showLoading(double fraction);
    void showText(const std::string& text);
    void erase();

private:
    bool due();
    void write(const std::string& text);

    std::ostream& err_;
    const bool enabled_;
    ScanItemsRateEMA rate_;
    std::chrono::steady_clock::time_point lastShown_;
    bool shown_ = false;
};

} // namespace brimvale::cli
