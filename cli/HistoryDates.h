#pragma once

#include "core/model/Date.h"

#include <optional>
#include <string>
#include <string_view>

namespace brimvale::cli {

// A date a person types: YYYY-MM-DD (its midnight), YYYY-MM-DD HH:MM[:SS] or with "T" between,
// in local time unless it ends in Z or ±HH:MM. None when it is not such a date (or not a day
// of the calendar: 2026-02-30).
std::optional<Date> parseHistoryDate(std::string_view text);

// "2026-05-03 09:12", local time.
std::string localDateText(Date date);

} // namespace brimvale::cli
