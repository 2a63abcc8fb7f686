#include "core/rclone/PlainInternetDate.h"

#include <cstdint>

namespace brimvale {
namespace {

bool readDigits(std::string_view text, std::size_t at, std::size_t count, int& value) {
    if (at + count > text.size()) {
        return false;
    }
    value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return false;
        }
        value = value * 10 + (text[i] - '0');
    }
    return true;
}

bool isLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int daysInMonth(int year, int month) {
    static constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : days[month - 1];
}

// Days from 1970-01-01 to the given proleptic Gregorian date.
std::int64_t daysFromCivil(std::int64_t year, int month, int day) {
    year -= month <= 2 ? 1 : 0;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const std::int64_t yearOfEra = year - era * 400;
    const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

} // namespace

std::optional<Date> parsePlainInternetDate(std::string_view text) {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!readDigits(text, 0, 4, year) || text.size() < 20 || text[4] != '-' ||
        !readDigits(text, 5, 2, month) || text[7] != '-' || !readDigits(text, 8, 2, day) ||
        text[10] != 'T' || !readDigits(text, 11, 2, hour) || text[13] != ':' ||
        !readDigits(text, 14, 2, minute) || text[16] != ':' || !readDigits(text, 17, 2, second)) {
        return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) || hour > 23 ||
        minute > 59 || second > 59) {
        return std::nullopt;
    }
    int offsetSeconds = 0;
    const std::string_view zone = text.substr(19);
    if (zone == "Z") {
        offsetSeconds = 0;
    } else if (zone.size() == 6 && (zone[0] == '+' || zone[0] == '-') && zone[3] == ':') {
        int offsetHours = 0, offsetMinutes = 0;
        if (!readDigits(zone, 1, 2, offsetHours) || !readDigits(zone, 4, 2, offsetMinutes) ||
            offsetHours > 23 || offsetMinutes > 59) {
            return std::nullopt;
        }
        offsetSeconds = (offsetHours * 3600 + offsetMinutes * 60) * (zone[0] == '-' ? -1 : 1);
    } else {
        return std::nullopt;
    }
    const std::int64_t unixSeconds = daysFromCivil(year, month, day) * 86400 + hour * 3600 +
                                     minute * 60 + second - offsetSeconds;
    return Date::fromUnixSeconds(static_cast<double>(unixSeconds));
}

} // namespace brimvale
