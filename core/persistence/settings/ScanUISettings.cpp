#include "core/persistence/settings/ScanUISettings.h"

#include <algorithm>
#include <cstdlib>
#include <string>

namespace brimvale::ScanUISettings {
namespace {

// The later a step, the more items it needs; the last step reached wins, then the result is
// kept between floor and ceiling.
template <class Step, class Value>
double steppedInterval(std::int64_t itemsScanned, double floor, double ceiling,
                       const std::vector<Step>& steps, Value Step::*value) {
    double interval = floor;
    for (const Step& step : steps) {
        if (itemsScanned >= step.items) {
            interval = step.*value;
        }
    }
    return std::min(std::max(interval, floor), ceiling);
}

} // namespace

double adaptiveLiveRefreshInterval(std::int64_t itemsScanned) {
    return steppedInterval(itemsScanned, liveUIRefreshFloor, liveUIRefreshCeiling,
                           liveUIRefreshSteps, &LiveRefreshStep::interval);
}

double adaptiveCheckpointMinInterval(std::int64_t itemsScanned) {
    return steppedInterval(itemsScanned, checkpointMinFloor, checkpointMinCeiling, checkpointSteps,
                           &CheckpointStep::seconds);
}

void applyEnvironmentOverrides() {
    const char* text = std::getenv("BRIMVALE_CHECKPOINT_SECONDS");
    if (text == nullptr || *text == '\0') {
        return;
    }
    char* end = nullptr;
    const double seconds = std::strtod(text, &end);
    if (*end != '\0' || !(seconds >= 0.0) || seconds > 86400.0) {
        return;
    }
    checkpointMinFloor = seconds;
    checkpointMinCeiling = seconds;
}

} // namespace brimvale::ScanUISettings
