#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace brimvale {

class CloudStorageProvider;

// What the user is shown for a failed scan, listing or account operation: one message and
// whether signing in again may help. This is the one place where error texts for users are
// made. Every function is pure: safe on any thread.
struct ScanErrorInfo {
    std::string message;
    bool canReconnect = false;

    friend bool operator==(const ScanErrorInfo&, const ScanErrorInfo&) = default;

    // For a failed scan or listing of one account.
    static ScanErrorInfo from(const std::exception& error, const CloudStorageProvider& provider);
    // The same for whatever was caught (non-standard exceptions get the generic message).
    static ScanErrorInfo from(const std::exception_ptr& error,
                              const CloudStorageProvider& provider);
    // For a failure while adding or reconnecting an account.
    static std::string addAccountFlowMessage(const std::exception& error);

    // The helpers of the classification; each takes the cleaned error text.
    // Removes the usage text that rclone prints after a command-line error, keeping a final
    // "Fatal error:" line alone when there is one.
    static std::string stripCLIUsageDump(std::string_view text);
    // A specific message for configuration problems that need more than a retry.
    static std::optional<std::string> rcloneSetupUserMessage(std::string_view text);
    // The text without rclone's log prefix, capped in length, never empty.
    static std::string compactUserMessage(std::string_view text);
    static bool looksLikeAuthOrTokenIssue(std::string_view text);
    static bool looksLikeReconnectableSetupIssue(std::string_view text);
    static bool looksLikeLocalFileAccessDenied(std::string_view text);
};

} // namespace brimvale
