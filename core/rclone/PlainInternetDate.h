#pragma once

#include "core/model/Date.h"

#include <optional>
#include <string_view>

namespace brimvale {

// Parses the plain internet date-time form of ISO 8601, strictly: "YYYY-MM-DDTHH:MM:SS"
// followed by "Z" or a "+HH:MM" / "-HH:MM" offset, with real calendar dates (leap years
// included) and nothing else: fractional seconds, a lower-case "t" or "z", a space instead of
// "T", a leap second or trailing text give nothing. Pure: safe on any thread.
std::optional<Date> parsePlainInternetDate(std::string_view text);

} // namespace brimvale
