#include "cli/DisplayText.h"

namespace brimvale::cli {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

} // namespace

std::size_t validUtf8SequenceLength(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    const auto byte = [&](std::size_t i) {
        return static_cast<unsigned char>(text[i]);
    };
    const unsigned char lead = byte(0);
    if (lead < 0x80) {
        return 1;
    }
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) {
            low = 0xA0; // no overlong forms
        } else if (lead == 0xED) {
            high = 0x9F; // no surrogates
        }
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) {
            low = 0x90;
        } else if (lead == 0xF4) {
            high = 0x8F; // nothing past U+10FFFF
        }
    } else {
        return 0;
    }
    if (text.size() < length || byte(1) < low || byte(1) > high) {
        return 0;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if (byte(i) < 0x80 || byte(i) > 0xBF) {
            return 0;
        }
    }
    return length;
}

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
        const std::size_t length = validUtf8SequenceLength(raw.substr(i));
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
