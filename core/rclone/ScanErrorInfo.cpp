#include "core/rclone/ScanErrorInfo.h"

#include "core/model/CloudStorageProvider.h"
#include "core/rclone/BrimvaleError.h"
#include "core/rclone/RcloneAdapter.h"
#include "core/rclone/Utf8Text.h"

#include <array>
#include <cctype>

namespace brimvale {
namespace {

using Utf8Text::collapsingDoubleSpaces;
using Utf8Text::removingIgnoringCase;
using Utf8Text::trimWhitespaceAndNewlines;

constexpr std::string_view kEllipsis = "\u2026";

bool contains(std::string_view lowered, std::string_view needle) {
    return lowered.find(needle) != std::string_view::npos;
}

bool containsAny(std::string_view lowered, std::initializer_list<std::string_view> needles) {
    for (const auto needle : needles) {
        if (contains(lowered, needle)) {
            return true;
        }
    }
    return false;
}

// The error text with the program's name removed, spaces collapsed and the ends trimmed.
std::string withoutProgramName(std::string_view text) {
    return std::string(
        trimWhitespaceAndNewlines(collapsingDoubleSpaces(removingIgnoringCase(text, "rclone"))));
}

std::string cappedAtCharacters(std::string text, std::size_t limit, std::size_t kept) {
    if (Utf8Text::characterCount(text) >= limit) {
        std::string capped(Utf8Text::prefixOfCharacters(text, kept));
        capped.append(kEllipsis);
        return capped;
    }
    return text;
}

std::string cutFrom(std::string_view text, std::string_view marker) {
    const auto at = text.find(marker);
    return std::string(at == std::string_view::npos ? text : text.substr(0, at));
}

// The byte length of the line terminator at `at` ("." in a regular expression stops there),
// or 0.
std::size_t lineTerminatorLengthAt(std::string_view text, std::size_t at) {
    const char c = text[at];
    if (c == '\n' || c == '\r' || c == '\v' || c == '\f') {
        return 1;
    }
    const std::string_view rest = text.substr(at);
    if (rest.starts_with("\xC2\x85")) {
        return 2;
    }
    if (rest.starts_with("\xE2\x80\xA8") || rest.starts_with("\xE2\x80\xA9")) {
        return 3;
    }
    return 0;
}

bool isLineStart(std::string_view text, std::size_t at) {
    if (at == 0) {
        return true;
    }
    for (std::size_t length = 1; length <= 3 && length <= at; ++length) {
        if (lineTerminatorLengthAt(text, at - length) == length) {
            return true;
        }
    }
    return false;
}

// Where "Use "<anything>" --help" starts, or npos.
std::size_t findHelpHint(std::string_view text) {
    std::size_t from = 0;
    for (;;) {
        const auto start = text.find("Use \"", from);
        if (start == std::string_view::npos) {
            return start;
        }
        const auto closing = text.find('"', start + 5);
        if (closing == std::string_view::npos) {
            return closing;
        }
        if (text.substr(closing + 1).starts_with(" --help")) {
            return start;
        }
        from = start + 1;
    }
}

// Every line that begins with `Use " help` emptied (its line break stays).
std::string withoutHelpLines(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    std::size_t at = 0;
    while (at < text.size()) {
        if (isLineStart(text, at) && text.substr(at).starts_with("Use \" help")) {
            while (at < text.size() && lineTerminatorLengthAt(text, at) == 0) {
                ++at;
            }
            continue;
        }
        result.push_back(text[at]);
        ++at;
    }
    return result;
}

bool isRegexWhitespace(std::string_view text, std::size_t at) {
    return std::isspace(static_cast<unsigned char>(text[at])) != 0 ||
           lineTerminatorLengthAt(text, at) != 0;
}

// The text of the first match of "(?i)Fatal error:\s*.+$": from "fatal error:" to the end,
// when what follows it is white space up to a last line that is not empty.
std::optional<std::string_view> finalFatalErrorLine(std::string_view text) {
    std::size_t lastLineStart = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (const auto length = lineTerminatorLengthAt(text, at)) {
            lastLineStart = at + length;
            at += length - 1;
        }
    }
    const std::string lowered = Utf8Text::asciiLowercased(text);
    constexpr std::string_view marker = "fatal error:";
    for (auto start = lowered.find(marker); start != std::string::npos;
         start = lowered.find(marker, start + 1)) {
        const std::size_t afterMarker = start + marker.size();
        bool onlyWhitespaceBeforeLastLine = true;
        for (std::size_t at = afterMarker; at < lastLineStart; ++at) {
            if (!isRegexWhitespace(text, at)) {
                onlyWhitespaceBeforeLastLine = false;
                break;
            }
        }
        const bool tailNotEmpty = std::max(afterMarker, lastLineStart) < text.size();
        if (onlyWhitespaceBeforeLastLine && tailNotEmpty) {
            return text.substr(start);
        }
    }
    return std::nullopt;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isWordCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// Matches "\d{4}/\d{2}/\d{2}\s+\d{2}:\d{2}:\d{2}\s+\w+:\s*" at `start`; returns its length or 0.
std::size_t logPrefixLengthAt(std::string_view text, std::size_t start) {
    std::size_t at = start;
    const auto digits = [&](int count) {
        for (int k = 0; k < count; ++k, ++at) {
            if (at >= text.size() || !isDigit(text[at])) {
                return false;
            }
        }
        return true;
    };
    const auto literal = [&](char c) {
        if (at < text.size() && text[at] == c) {
            ++at;
            return true;
        }
        return false;
    };
    const auto spaces = [&](bool required) {
        const std::size_t from = at;
        while (at < text.size() && isRegexWhitespace(text, at)) {
            at += std::max<std::size_t>(1, lineTerminatorLengthAt(text, at));
        }
        return !required || at > from;
    };
    const auto word = [&] {
        const std::size_t from = at;
        while (at < text.size() && isWordCharacter(text[at])) {
            ++at;
        }
        return at > from;
    };
    const bool matched = digits(4) && literal('/') && digits(2) && literal('/') && digits(2) &&
                         spaces(true) && digits(2) && literal(':') && digits(2) && literal(':') &&
                         digits(2) && spaces(true) && word() && literal(':') && spaces(false);
    return matched ? at - start : 0;
}

// The scan-side cleaning: program name removed, spaces collapsed, trimmed, usage stripped.
std::string cleanedScanText(std::string_view description) {
    return ScanErrorInfo::stripCLIUsageDump(withoutProgramName(description));
}

const BrimvaleError* asBrimvaleError(const std::exception& error) {
    return dynamic_cast<const BrimvaleError*>(&error);
}

} // namespace

ScanErrorInfo ScanErrorInfo::from(const std::exception& error,
                                  const CloudStorageProvider& provider) {
    if (const auto* brimvaleError = asBrimvaleError(error)) {
        if (brimvaleError->is<BrimvaleError::RcloneNotInstalled>()) {
            return {"The program that connects to your cloud accounts was not found on this "
                    "computer.",
                    false};
        }
        if (!brimvaleError->is<BrimvaleError::ScanFailed>()) {
            return {brimvaleError->description(), false};
        }
    }
    const bool isCloudAccount = dynamic_cast<const RcloneAdapter*>(&provider) != nullptr;
    const std::string text = cleanedScanText(error.what());
    if (auto setupMessage = rcloneSetupUserMessage(text)) {
        return {std::move(*setupMessage), isCloudAccount && looksLikeReconnectableSetupIssue(text)};
    }
    if (looksLikeAuthOrTokenIssue(text)) {
        return {"Sign-in for this account is missing or expired. Reconnect to keep using it.",
                isCloudAccount};
    }
    if (provider.rcloneType() == "local" && looksLikeLocalFileAccessDenied(text)) {
        return {"Could not read that folder on your computer (" + compactUserMessage(text) +
                    "). For system volumes or other disks, give your user account read "
                    "permission for those folders, or scan them as a user who has it.",
                false};
    }
    return {compactUserMessage(text), isCloudAccount && looksLikeReconnectableSetupIssue(text)};
}

ScanErrorInfo ScanErrorInfo::from(const std::exception_ptr& error,
                                  const CloudStorageProvider& provider) {
    try {
        if (error) {
            std::rethrow_exception(error);
        }
    } catch (const std::exception& caught) {
        return from(caught, provider);
    } catch (...) {
    }
    return {compactUserMessage({}), false};
}

std::string ScanErrorInfo::addAccountFlowMessage(const std::exception& error) {
    if (const auto* brimvaleError = asBrimvaleError(error)) {
        if (brimvaleError->is<BrimvaleError::RcloneNotInstalled>()) {
            return "The helper program used to reach your clouds was not found on this computer.";
        }
        if (!brimvaleError->is<BrimvaleError::ScanFailed>()) {
            return withoutProgramName(brimvaleError->description());
        }
    }
    const std::string_view description = error.what();
    const std::string lowered = Utf8Text::asciiLowercased(description);
    if (contains(lowered, "no code returned")) {
        return "The provider did not confirm access\u2014usually the browser tab was closed "
               "before finishing, or access was not approved. Use Open sign-in page again, "
               "complete approval in the browser, then Try signing in again if the app still "
               "doesn\u2019t connect.";
    }
    if (contains(lowered, "auth error") && containsAny(lowered, {"refresh", "token", "oauth"})) {
        return "Sign-in with the cloud provider did not complete. Open the sign-in page again, "
               "or try signing in again from here.";
    }
    if (contains(lowered, "failed to read line") && contains(lowered, "eof")) {
        return "The sign-in helper stopped unexpectedly. Try signing in again, or close this "
               "sheet and pick the service again.";
    }
    std::string text = collapsingDoubleSpaces(removingIgnoringCase(description, "rclone"));
    text = cutFrom(cutFrom(text, "Usage:"), "Flags:");
    text = cappedAtCharacters(std::string(trimWhitespaceAndNewlines(text)), 261, 257);
    if (text.empty()) {
        return "Something went wrong while connecting this account.";
    }
    return text;
}

std::string ScanErrorInfo::stripCLIUsageDump(std::string_view text) {
    std::string stripped = cutFrom(text, "Usage:");
    const auto hint = findHelpHint(stripped);
    if (hint != std::string::npos) {
        stripped.resize(hint);
    }
    stripped = withoutHelpLines(stripped);
    const std::string result(trimWhitespaceAndNewlines(stripped));
    if (const auto fatal = finalFatalErrorLine(result)) {
        const std::string_view line = trimWhitespaceAndNewlines(*fatal);
        if (Utf8Text::characterCount(line) < 280) {
            return std::string(line);
        }
    }
    return result;
}

std::optional<std::string> ScanErrorInfo::rcloneSetupUserMessage(std::string_view text) {
    const std::string t = Utf8Text::asciiLowercased(text);
    if (containsAny(t, {"couldn't find backend", "could not find backend"})) {
        return "That storage type isn\u2019t built into the bundled connection helper. Remove "
               "this account and add it again after updating the app, or use Advanced "
               "configuration if your build supports it.";
    }
    if (contains(t, "no region set")) {
        return "This remote needs a region (and usually credentials or an endpoint). Use "
               "Reconnect account to open configuration in your browser and complete the "
               "fields.";
    }
    if (contains(t, "project number") && containsAny(t, {"bucket", "list"})) {
        return "This Google Cloud Storage remote needs project/bucket details in "
               "configuration. Use Reconnect account to open the configuration site and set "
               "project number, bucket, or credentials.";
    }
    if (contains(t, "insufficient authentication scopes") ||
        (contains(t, "permission_denied") && contains(t, "scope"))) {
        return "This account was refused because your Google Cloud OAuth consent screen "
               "doesn\u2019t include the API scopes the connection needs. In Google Cloud "
               "Console go to APIs & Services \u2192 OAuth consent screen \u2192 Edit app "
               "\u2192 Scopes, add the scopes your backend requires, save, then tap Reconnect "
               "account and complete sign-in so your token includes those scopes.";
    }
    return std::nullopt;
}

std::string ScanErrorInfo::compactUserMessage(std::string_view text) {
    std::string compact(text);
    for (std::size_t start = 0; start < compact.size(); ++start) {
        if (const auto length = logPrefixLengthAt(compact, start)) {
            compact.erase(start, length);
            break;
        }
    }
    compact = Utf8Text::replacingIgnoringCase(compact, "Failed to create file system for",
                                              "Could not open");
    compact = cappedAtCharacters(std::string(trimWhitespaceAndNewlines(compact)), 1201, 1197);
    if (compact.empty()) {
        return "Something went wrong while reading this account.";
    }
    return compact;
}

bool ScanErrorInfo::looksLikeAuthOrTokenIssue(std::string_view text) {
    const std::string t = Utf8Text::asciiLowercased(text);
    return contains(t, "insufficient authentication scopes") || contains(t, "empty token") ||
           contains(t, "invalid_grant") || contains(t, "token expired") ||
           contains(t, "expired token") ||
           (contains(t, "reconnect") && containsAny(t, {"token", "auth", "oauth"})) ||
           containsAny(t, {"couldn't fetch token", "could not fetch token"}) ||
           (contains(t, "auth") && contains(t, "failed")) || contains(t, "unauthorized") ||
           contains(t, "401") || (contains(t, "403") && contains(t, "forbidden")) ||
           (contains(t, "failed to read line") && contains(t, "eof"));
}

bool ScanErrorInfo::looksLikeReconnectableSetupIssue(std::string_view text) {
    const std::string t = Utf8Text::asciiLowercased(text);
    if (containsAny(t, {"couldn't find backend", "could not find backend"})) {
        return false;
    }
    if (contains(t, "insufficient authentication scopes")) {
        return true;
    }
    if (contains(t, "permission_denied") && contains(t, "scope")) {
        return true;
    }
    if (contains(t, "no region set")) {
        return true;
    }
    return contains(t, "project number") && containsAny(t, {"bucket", "list"});
}

bool ScanErrorInfo::looksLikeLocalFileAccessDenied(std::string_view text) {
    const std::string t = Utf8Text::asciiLowercased(text);
    return containsAny(t, {"operation not permitted", "permission denied", "couldn't be opened",
                           "could not be opened", "not permitted"});
}

} // namespace brimvale
