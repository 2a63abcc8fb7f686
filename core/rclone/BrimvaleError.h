#pragma once

#include <exception>
#include <string>
#include <variant>

namespace brimvale {

// The failures of the cloud subsystem, thrown as exceptions. A value type: safe to copy and to
// hand between threads. Its description is the raw text; what the user reads is made from it by
// ScanErrorInfo.
class BrimvaleError : public std::exception {
public:
    struct RemoteNotConfigured {
        std::string accountName;
        friend bool operator==(const RemoteNotConfigured&, const RemoteNotConfigured&) = default;
    };
    struct ScanFailed {
        std::string accountName;
        std::string detail; // rclone's standard error, or "exit N" when it printed nothing
        friend bool operator==(const ScanFailed&, const ScanFailed&) = default;
    };
    struct ParseError {
        std::string detail;
        friend bool operator==(const ParseError&, const ParseError&) = default;
    };
    struct RcloneNotInstalled {
        friend bool operator==(const RcloneNotInstalled&, const RcloneNotInstalled&) = default;
    };
    using Case = std::variant<RemoteNotConfigured, ScanFailed, ParseError, RcloneNotInstalled>;

    explicit BrimvaleError(Case errorCase);

    static BrimvaleError remoteNotConfigured(std::string accountName);
    static BrimvaleError scanFailed(std::string accountName, std::string detail);
    static BrimvaleError parseError(std::string detail);
    static BrimvaleError rcloneNotInstalled();

    const Case& errorCase() const { return case_; }
    template <class T> const T* as() const { return std::get_if<T>(&case_); }
    template <class T> bool is() const { return std::holds_alternative<T>(case_); }

    // "Account "x" is not set up yet.", "Could not read "x": detail", …
    const std::string& description() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

    friend bool operator==(const BrimvaleError& a, const BrimvaleError& b) {
        return a.case_ == b.case_;
    }

private:
    Case case_;
    std::string description_;
};

} // namespace brimvale
