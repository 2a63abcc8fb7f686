#include "core/rclone/RcloneListingErrors.h"

#include "core/rclone/Utf8Text.h"

#include <optional>
#include <set>
#include <string>

namespace brimvale {
namespace {

constexpr std::string_view kErrorLevel = "ERROR : ";
constexpr std::string_view kOpenFailure = "failed to open directory \"";

// Reads a Go-quoted string ("a\"b") from the start of `text` (just after its opening quote);
// returns it and moves `text` past the closing quote.
std::optional<std::string> readGoQuoted(std::string_view& text) {
    std::string value;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            text.remove_prefix(i + 1);
            return value;
        }
        if (c != '\\' || i + 1 == text.size()) {
            value.push_back(c);
            continue;
        }
        const char escaped = text[++i];
        const auto hexDigits = [&](std::size_t count) -> std::optional<unsigned> {
            if (i + count >= text.size()) {
                return std::nullopt;
            }
            unsigned number = 0;
            for (std::size_t k = 1; k <= count; ++k) {
                const char digit = text[i + k];
                number <<= 4;
                if (digit >= '0' && digit <= '9') {
                    number |= static_cast<unsigned>(digit - '0');
                } else if (digit >= 'a' && digit <= 'f') {
                    number |= static_cast<unsigned>(digit - 'a' + 10);
                } else if (digit >= 'A' && digit <= 'F') {
                    number |= static_cast<unsigned>(digit - 'A' + 10);
                } else {
                    return std::nullopt;
                }
            }
            i += count;
            return number;
        };
        switch (escaped) {
        case 'n':
            value.push_back('\n');
            break;
        case 't':
            value.push_back('\t');
            break;
        case 'r':
            value.push_back('\r');
            break;
        case 'x':
            if (const auto byte = hexDigits(2)) {
                value.push_back(static_cast<char>(*byte));
            }
            break;
        case 'u':
        case 'U':
            if (const auto code = hexDigits(escaped == 'u' ? 4 : 8)) {
                value += Utf8Text::encodeCodePoint(static_cast<char32_t>(*code));
            }
            break;
        default:
            value.push_back(escaped);
        }
    }
    return std::nullopt;
}

std::string locationOf(std::string_view item) {
    while (item.starts_with('/')) {
        item.remove_prefix(1);
    }
    return "/" + std::string(item);
}

std::optional<SkippedFolder> readErrorLine(std::string_view line) {
    const auto level = line.find(kErrorLevel);
    if (level == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view rest = line.substr(level + kErrorLevel.size());
    if (rest.starts_with("Attempt ")) {
        return std::nullopt; // a retry summary, not an item
    }
    if (const auto open = rest.find(kOpenFailure); open != std::string_view::npos) {
        std::string_view quoted = rest.substr(open + kOpenFailure.size());
        if (auto path = readGoQuoted(quoted)) {
            while (quoted.starts_with(':') || quoted.starts_with(' ')) {
                quoted.remove_prefix(1);
            }
            return SkippedFolder{.location = locationOf(*path),
                                 .reason = Utf8Text::decodeLossy(quoted.empty() ? rest : quoted)};
        }
    }
    const auto separator = rest.find(": ");
    if (separator == std::string_view::npos) {
        return std::nullopt;
    }
    return SkippedFolder{.location = locationOf(Utf8Text::decodeLossy(rest.substr(0, separator))),
                         .reason = Utf8Text::decodeLossy(rest.substr(separator + 2))};
}

} // namespace

std::vector<SkippedFolder> unreadableFoldersInListingLog(std::string_view standardError) {
    std::vector<SkippedFolder> folders;
    std::set<std::string> seen;
    while (!standardError.empty()) {
        const auto newline = standardError.find('\n');
        const std::string_view line = standardError.substr(0, newline);
        standardError.remove_prefix(newline == std::string_view::npos ? standardError.size()
                                                                      : newline + 1);
        if (auto folder = readErrorLine(line); folder && seen.insert(folder->location).second) {
            folders.push_back(std::move(*folder));
        }
    }
    return folders;
}

} // namespace brimvale
