#include "core/model/ScanItemsRateEMA.h"

#include "core/support/FatalError.h"

#include <cmath>

namespace brimvale {

void ScanItemsRateEMA::record(std::int64_t totalItems, Clock::time_point now) {
    if (!lastTime) {
        lastTime = now;
        lastTotal = totalItems;
        return;
    }
    const double dt = std::chrono::duration<double>(now - *lastTime).count();
    if (!(dt > 0.001)) {
        return;
    }
    std::int64_t delta = 0;
    if (__builtin_sub_overflow(totalItems, lastTotal, &delta)) {
        fatalError("item count overflow in the scanning rate");
    }
    const double instant = static_cast<double>(delta) / dt;
    instantPerSecond = instant;
    lastTime = now;
    lastTotal = totalItems;
    const double alpha = 1.0 - std::exp(-dt / 60.0);
    smoothedPerSecond = alpha * instant + (1.0 - alpha) * smoothedPerSecond;
}

std::int64_t roundedRate(double perSecond) {
    const double rounded = std::round(perSecond);
    // 2^63 is exactly representable; anything at or beyond it does not fit.
    if (!(rounded >= -9223372036854775808.0 && rounded < 9223372036854775808.0)) {
        fatalError("scanning rate out of range");
    }
    return static_cast<std::int64_t>(rounded);
}

} // namespace brimvale
