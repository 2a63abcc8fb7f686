#pragma once

#include <cstdint>
#include <string>

namespace brimvale {

// The one byte-count text of the system: decimal units (base 1000), "bytes" below 1000, then
// "KB", "MB", "GB" and "TB" with at most one fraction digit below 100 and none from 100 on,
// rounded half-even on the shortest decimal form of the value: 1,250 bytes is "1.2 KB",
// 1,050 bytes "1 KB", 99,950 bytes "100 KB", 999,999 bytes "1000 KB"; -5 is "-5 bytes".
// The formatter has no mutable state, so one instance may be shared by every thread.
class SizeFormatter {
public:
    std::string stringFromByteCount(std::int64_t bytes) const;
};

// The process-wide formatter.
const SizeFormatter& sharedSizeFormatter();

// The same text as SizeFormatter::stringFromByteCount.
std::string formatBytes(std::int64_t bytes);

// `value` with at most `maxFractionDigits` fraction digits, no trailing zeros, "." as the
// decimal point and no grouping, rounded half-even on the shortest decimal text that reads back
// as `value` (so 1.25 rounds to 1.2 and 99.95 to 100, as a person reading the digits expects).
std::string formatDecimalHalfEven(double value, int maxFractionDigits);

} // namespace brimvale
