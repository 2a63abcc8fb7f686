#include "core/model/Date.h"

#include <cmath>
#include <ctime>

namespace brimvale {

std::string Date::iso8601() const {
    const auto seconds = static_cast<std::time_t>(std::floor(unixSeconds()));
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

} // namespace brimvale
