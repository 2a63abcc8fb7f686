#include "app/support/DateTexts.h"

#include <gtest/gtest.h>

namespace brimvale {
namespace {

constexpr double kHour = 3600;
constexpr double kDay = 24 * kHour;

TEST(DateTexts, RelativeDatesUseNamedFormsAndTheLargestUnit) {
    const Date now = Date::fromUnixSeconds(1'714'566'896); // 2024-05-01T12:34:56Z
    const auto ago = [&](double seconds) {
        return DateTexts::relativeDateText(Date{now.secondsSinceReferenceDate - seconds}, now,
                                           "en_US");
    };
    EXPECT_EQ(ago(0), "now");
    EXPECT_EQ(ago(0.4), "now");
    EXPECT_EQ(ago(30), "30 seconds ago");
    EXPECT_EQ(ago(60), "1 minute ago");
    EXPECT_EQ(ago(59 * 60 + 59), "59 minutes ago");
    EXPECT_EQ(ago(3 * kHour + 120), "3 hours ago");
    EXPECT_EQ(ago(23.9 * kHour), "23 hours ago");
    EXPECT_EQ(ago(kDay + kHour), "yesterday");
    EXPECT_EQ(ago(2 * kDay), "2 days ago");
    EXPECT_EQ(ago(8 * kDay), "last week");
    EXPECT_EQ(ago(40 * kDay), "last month");
    EXPECT_EQ(ago(400 * kDay), "last year");
    EXPECT_EQ(ago(3 * 366 * kDay), "3 years ago");
    // A clock set back (the saved scan seems newer than now).
    EXPECT_EQ(ago(-3 * kHour), "in 3 hours");
    EXPECT_EQ(ago(-kDay - 10), "tomorrow");

    EXPECT_EQ(
        DateTexts::cachedDateText(Date{now.secondsSinceReferenceDate - 3 * kHour}, now, "en_US"),
        "Cached 3 hours ago");
}

TEST(DateTexts, OneOfAUnitIsSingularInEnglishAndUnderTheCLocale) {
    const Date now = Date::fromUnixSeconds(1'714'566'896);
    for (const char* locale : {"en_US", "en_GB", "C", "POSIX", "C.UTF-8"}) {
        const auto ago = [&](double seconds) {
            return DateTexts::relativeDateText(Date{now.secondsSinceReferenceDate - seconds}, now,
                                               locale);
        };
        EXPECT_EQ(ago(1), "1 second ago") << locale;
        EXPECT_EQ(ago(2), "2 seconds ago") << locale;
        EXPECT_EQ(ago(3601), "1 hour ago") << locale;
        EXPECT_EQ(DateTexts::cachedDateText(Date{now.secondsSinceReferenceDate - 61}, now, locale),
                  "Cached 1 minute ago")
            << locale;
    }
}

TEST(DateTexts, FollowTheLanguage) {
    const Date now = Date::fromUnixSeconds(1'714'566'896);
    const Date threeHoursAgo{now.secondsSinceReferenceDate - 3 * kHour};
    EXPECT_EQ(DateTexts::relativeDateText(threeHoursAgo, now, "de_DE"), "vor 3 Stunden");
    EXPECT_EQ(
        DateTexts::relativeDateText(Date{now.secondsSinceReferenceDate - kDay - 60}, now, "fr_FR"),
        "hier");
}

TEST(DateTexts, AbbreviatedDateWithoutTime) {
    const Date date = Date::fromUnixSeconds(1'704'456'000); // 2024-01-05T12:00:00Z
    EXPECT_EQ(DateTexts::abbreviatedDateText(date, "en_US", "UTC"), "Jan 5, 2024");
    EXPECT_EQ(DateTexts::abbreviatedDateText(date, "de_DE", "UTC"), "05.01.2024");
    // The day depends on the time zone: noon UTC is already the next day in Kiribati.
    EXPECT_EQ(DateTexts::abbreviatedDateText(date, "en_US", "Pacific/Kiritimati"), "Jan 6, 2024");
}

} // namespace
} // namespace brimvale
