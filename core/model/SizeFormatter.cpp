#include "core/model/SizeFormatter.h"

#include <charconv>
#include <cmath>
#include <string_view>

namespace brimvale {
namespace {

struct Unit {
    std::int64_t below;
    double divisor;
    const char* name;
};

constexpr Unit kUnits[] = {
    {1'000'000, 1e3, "KB"},
    {1'000'000'000, 1e6, "MB"},
    {1'000'000'000'000, 1e9, "GB"},
};

// Adds one to the last digit of `digits` (which holds only '0'..'9' and '.'), carrying leftwards.
void incrementDecimal(std::string& digits) {
    for (auto position = digits.size(); position-- > 0;) {
        char& digit = digits[position];
        if (digit == '.') {
            continue;
        }
        if (digit != '9') {
            ++digit;
            return;
        }
        digit = '0';
    }
    digits.insert(digits.begin(), '1');
}

} // namespace

std::string formatDecimalHalfEven(double value, int maxFractionDigits) {
    if (!std::isfinite(value)) {
        return std::isnan(value) ? "NaN" : (value < 0 ? "-Infinity" : "Infinity");
    }
    char buffer[400];
    const auto converted =
        std::to_chars(buffer, buffer + sizeof buffer, std::fabs(value), std::chars_format::fixed);
    std::string text(buffer, converted.ptr);

    const auto point = text.find('.');
    if (point != std::string::npos) {
        const auto fractionDigits = static_cast<int>(text.size() - point - 1);
        if (fractionDigits > maxFractionDigits) {
            const std::string dropped = text.substr(point + 1 + maxFractionDigits);
            text.resize(point + 1 + maxFractionDigits);
            bool roundUp = false;
            if (dropped.front() > '5') {
                roundUp = true;
            } else if (dropped.front() == '5') {
                const bool exactTie = dropped.find_first_not_of('0', 1) == std::string::npos;
                if (!exactTie) {
                    roundUp = true;
                } else {
                    char kept = text.back() == '.' ? text[text.size() - 2] : text.back();
                    roundUp = (kept - '0') % 2 == 1;
                }
            }
            if (roundUp) {
                incrementDecimal(text);
            }
        }
        while (!text.empty() && text.back() == '0' && text.find('.') != std::string::npos) {
            text.pop_back();
        }
        if (!text.empty() && text.back() == '.') {
            text.pop_back();
        }
    }
    const bool negative = std::signbit(value) && text.find_first_not_of("0.") != std::string::npos;
    return negative ? "-" + text : text;
}

std::string SizeFormatter::stringFromByteCount(std::int64_t bytes) const {
    if (bytes < 1000) {
        return std::to_string(bytes) + " bytes";
    }
    double divisor = 1e12;
    const char* unit = "TB";
    for (const Unit& candidate : kUnits) {
        if (bytes < candidate.below) {
            divisor = candidate.divisor;
            unit = candidate.name;
            break;
        }
    }
    const double value = static_cast<double>(bytes) / divisor;
    const int maxFractionDigits = value < 100.0 ? 1 : 0;
    return formatDecimalHalfEven(value, maxFractionDigits) + " " + unit;
}

const SizeFormatter& sharedSizeFormatter() {
    static const SizeFormatter formatter;
    return formatter;
}

std::string formatBytes(std::int64_t bytes) {
    return SizeFormatter().stringFromByteCount(bytes);
}

} // namespace brimvale
