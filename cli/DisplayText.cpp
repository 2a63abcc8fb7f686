#include "cli/DisplayText.h"

#include "core/support/ByteNames.h"

namespace brimvale::cli {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

} // namespace

std::string displayText(std::string_view raw) {
    std::string text;
    text.reserve(raw.size());
    std::size_t i = 0;
    while (i < raw.size()) {
        const auto byte = static_cast<unsigned char>(raw[i]);
        if (byte < 0x20 || byte == 0x7F) {
            text.append(kReplacementCharacter);
            ++i;
            continue;
        }
        const std::size_t length = ByteNames::validUtf8SequenceLength(raw.substr(i));
        if (length == 0) {
            text.append(kReplacementCharacter);
            ++i;
            continue;
        }
        text.append(raw.substr(i, length));
        i += length;
    }
    return text;
}

std::string groupedCount(std::int64_t count) {
    const bool negative = count < 0;
    std::string digits = std::to_string(count);
    if (negative) {
        digits.erase(0, 1);
    }
    std::string grouped;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) {
            grouped.push_back(',');
        }
        grouped.push_back(digits[i]);
    }
    return negative ? "-" + grouped : grouped;
}

std::string relativeAge(double secondsAgo) {
    struct Unit {
        double seconds;
        const char* singular;
        const char* plural;
    };
    static constexpr Unit kUnits[] = {{365.0 * 86400.0, "year", "years"},
                                      {30.0 * 86400.0, "month", "months"},
                                      {86400.0, "day", "days"},
                                      {3600.0, "hour", "hours"},
                                      {60.0, "minute", "minutes"}};
    if (!(secondsAgo >= 60.0)) {
        return "just now";
    }
    for (const auto& unit : kUnits) {
        if (secondsAgo >= unit.seconds) {
            const auto count = static_cast<std::int64_t>(secondsAgo / unit.seconds);
            return std::to_string(count) + " " + (count == 1 ? unit.singular : unit.plural) +
                   " ago";
        }
    }
    return "just now";
}

} // namespace brimvale::cli
