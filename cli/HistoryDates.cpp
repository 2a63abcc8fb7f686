#include "cli/HistoryDates.h"

#include <charconv>
#include <ctime>

namespace brimvale::cli {
namespace {

// Reads exactly `digits` digits at `at`.
std::optional<int> number(std::string_view text, std::size_t& at, std::size_t digits) {
    if (at + digits > text.size()) {
        return std::nullopt;
    }
    int value = 0;
    for (std::size_t index = at; index < at + digits; ++index) {
        if (text[index] < '0' || text[index] > '9') {
            return std::nullopt;
        }
        value = value * 10 + (text[index] - '0');
    }
    at += digits;
    return value;
}

bool expect(std::string_view text, std::size_t& at, char separator) {
    if (at < text.size() && text[at] == separator) {
        ++at;
        return true;
    }
    return false;
}

int daysInMonth(int year, int month) {
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : kDays[month - 1];
}

} // namespace

std::optional<Date> parseHistoryDate(std::string_view text) {
    std::size_t at = 0;
    const auto year = number(text, at, 4);
    if (!year || !expect(text, at, '-')) {
        return std::nullopt;
    }
    const auto month = number(text, at, 2);
    if (!month || *month < 1 || *month > 12 || !expect(text, at, '-')) {
        return std::nullopt;
    }
    const auto day = number(text, at, 2);
    if (!day || *day < 1 || *day > daysInMonth(*year, *month)) {
        return std::nullopt;
    }
    std::tm parts{};
    parts.tm_year = *year - 1900;
    parts.tm_mon = *month - 1;
    parts.tm_mday = *day;
    if (at < text.size() && (text[at] == 'T' || text[at] == ' ')) {
        ++at;
        const auto hour = number(text, at, 2);
        if (!hour || *hour > 23 || !expect(text, at, ':')) {
            return std::nullopt;
        }
        const auto minute = number(text, at, 2);
        if (!minute || *minute > 59) {
            return std::nullopt;
        }
        parts.tm_hour = *hour;
        parts.tm_min = *minute;
        if (expect(text, at, ':')) {
            const auto second = number(text, at, 2);
            if (!second || *second > 59) {
                return std::nullopt;
            }
            parts.tm_sec = *second;
        }
    }
    std::optional<int> offsetMinutes;
    if (expect(text, at, 'Z')) {
        offsetMinutes = 0;
    } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        const int sign = text[at++] == '-' ? -1 : 1;
        const auto hours = number(text, at, 2);
        if (!hours || *hours > 23 || !expect(text, at, ':')) {
            return std::nullopt;
        }
        const auto minutes = number(text, at, 2);
        if (!minutes || *minutes > 59) {
            return std::nullopt;
        }
        offsetMinutes = sign * (*hours * 60 + *minutes);
    }
    if (at != text.size()) {
        return std::nullopt;
    }
    if (offsetMinutes) {
        return Date::fromUnixSeconds(static_cast<double>(timegm(&parts)) - *offsetMinutes * 60.0);
    }
    parts.tm_isdst = -1;
    return Date::fromUnixSeconds(static_cast<double>(std::mktime(&parts)));
}

std::string localDateText(Date date) {
    const auto seconds = static_cast<std::time_t>(date.unixSeconds());
    std::tm parts{};
    localtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts);
    return text;
}

} // namespace brimvale::cli
