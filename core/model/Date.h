#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brimvale {

// A point in time, stored as seconds since 2001-01-01 00:00:00 UTC (the reference date of the
// cache format).
struct Date {
    static constexpr double kUnixTimeOfReferenceDate = 978'307'200.0;

    double secondsSinceReferenceDate = 0;

    static Date fromUnixSeconds(double unixSeconds) {
        return Date{unixSeconds - kUnixTimeOfReferenceDate};
    }
    double unixSeconds() const { return secondsSinceReferenceDate + kUnixTimeOfReferenceDate; }

    // The plain internet form in UTC, whole seconds: 2024-05-01T12:34:56Z.
    std::string iso8601() const;

    friend auto operator<=>(const Date&, const Date&) = default;
};

} // namespace brimvale
