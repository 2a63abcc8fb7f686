#pragma once

#include "core/model/Date.h"

#include <string>

namespace brimvale::DateTexts {

// Dates as people read them, in the language of `locale` (an ICU or POSIX locale name such as
// "en_US" or "de_DE"; empty: the user's). Made by ICU, so they follow the user's language.

// `then` relative to `now` in words, with named forms where the language has them and wide
// units: "now", "5 minutes ago", "3 hours ago", "yesterday", "2 days ago", "last week",
// "in 3 hours" (a date in the future). The unit is the largest that fits the distance.
std::string relativeDateText(Date then, Date now, const std::string& locale = {});
// "Cached " followed by the relative date.
std::string cachedDateText(Date then, Date now, const std::string& locale = {});
// The date in abbreviated style without the time, such as "Jan 5, 2024", in `timeZone` (an
// Olson name; empty: the user's).
std::string abbreviatedDateText(Date date, const std::string& locale = {},
                                const std::string& timeZone = {});
// The user's locale name for the functions above.
std::string userLocaleName();

} // namespace brimvale::DateTexts
