#include "app/support/DateTexts.h"

#include <QLocale>

#include <cmath>
#include <memory>
#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/reldatefmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

namespace brimvale::DateTexts {
namespace {

icu::Locale icuLocale(const std::string& locale) {
    const std::string name = locale.empty() ? userLocaleName() : locale;
    // The C (POSIX) locale has no language, and ICU's root locale no plural rules ("1 seconds
    // ago"): it means the program's own language, English.
    if (name == "C" || name == "POSIX" || name.starts_with("C.") || name.starts_with("C_")) {
        return icu::Locale("en_US_POSIX");
    }
    return icu::Locale(name.c_str());
}

std::string utf8(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

struct RelativeAmount {
    double offset; // negative: in the past
    URelativeDateTimeUnit unit;
};

// The largest unit that fits the distance, as a whole number of it.
RelativeAmount relativeAmount(double seconds) {
    const double distance = std::fabs(seconds);
    const double sign = seconds < 0 ? -1.0 : 1.0;
    constexpr double minute = 60;
    constexpr double hour = 60 * minute;
    constexpr double day = 24 * hour;
    constexpr double week = 7 * day;
    constexpr double month = 30.436875 * day; // a mean Gregorian month
    constexpr double year = 365.2425 * day;
    if (distance < 1) {
        return {0, UDAT_REL_UNIT_SECOND};
    }
    if (distance < minute) {
        return {sign * std::floor(distance), UDAT_REL_UNIT_SECOND};
    }
    if (distance < hour) {
        return {sign * std::floor(distance / minute), UDAT_REL_UNIT_MINUTE};
    }
    if (distance < day) {
        return {sign * std::floor(distance / hour), UDAT_REL_UNIT_HOUR};
    }
    if (distance < week) {
        return {sign * std::floor(distance / day), UDAT_REL_UNIT_DAY};
    }
    if (distance < month) {
        return {sign * std::floor(distance / week), UDAT_REL_UNIT_WEEK};
    }
    if (distance < year) {
        return {sign * std::floor(distance / month), UDAT_REL_UNIT_MONTH};
    }
    return {sign * std::floor(distance / year), UDAT_REL_UNIT_YEAR};
}

} // namespace

std::string userLocaleName() {
    return QLocale().name().toStdString();
}

std::string relativeDateText(Date then, Date now, const std::string& locale) {
    const RelativeAmount amount =
        relativeAmount(then.secondsSinceReferenceDate - now.secondsSinceReferenceDate);
    UErrorCode status = U_ZERO_ERROR;
    icu::RelativeDateTimeFormatter formatter(icuLocale(locale), nullptr, UDAT_STYLE_LONG,
                                             UDISPCTX_CAPITALIZATION_NONE, status);
    icu::UnicodeString text;
    if (U_SUCCESS(status)) {
        // format() uses the named form ("yesterday", "last week") where there is one.
        formatter.format(amount.offset, amount.unit, text, status);
    }
    if (U_FAILURE(status)) {
        return {};
    }
    return utf8(text);
}

std::string cachedDateText(Date then, Date now, const std::string& locale) {
    return "Cached " + relativeDateText(then, now, locale);
}

std::string abbreviatedDateText(Date date, const std::string& locale, const std::string& timeZone) {
    std::unique_ptr<icu::DateFormat> format(
        icu::DateFormat::createDateInstance(icu::DateFormat::kMedium, icuLocale(locale)));
    if (!format) {
        return {};
    }
    if (!timeZone.empty()) {
        format->adoptTimeZone(
            icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(timeZone)));
    }
    icu::UnicodeString text;
    format->format(date.unixSeconds() * 1000.0, text);
    return utf8(text);
}

} // namespace brimvale::DateTexts
