#include "core/rclone/BrimvaleError.h"

#include <utility>

namespace brimvale {
namespace {

struct DescriptionText {
    std::string operator()(const BrimvaleError::RemoteNotConfigured& error) const {
        return "Account \"" + error.accountName + "\" is not set up yet.";
    }
    std::string operator()(const BrimvaleError::ScanFailed& error) const {
        return "Could not read \"" + error.accountName + "\": " + error.detail;
    }
    std::string operator()(const BrimvaleError::ParseError& error) const {
        return "Could not read cloud listing data: " + error.detail;
    }
    std::string operator()(const BrimvaleError::RcloneNotInstalled&) const {
        return "The cloud sync tool is not installed. Install it (for example: sudo apt install "
               "rclone) and try again.";
    }
};

} // namespace

BrimvaleError::BrimvaleError(Case errorCase)
    : case_(std::move(errorCase))
    , description_(std::visit(DescriptionText{}, case_)) {}

BrimvaleError BrimvaleError::remoteNotConfigured(std::string accountName) {
    return BrimvaleError(RemoteNotConfigured{std::move(accountName)});
}

BrimvaleError BrimvaleError::scanFailed(std::string accountName, std::string detail) {
    return BrimvaleError(ScanFailed{std::move(accountName), std::move(detail)});
}

BrimvaleError BrimvaleError::parseError(std::string detail) {
    return BrimvaleError(ParseError{std::move(detail)});
}

BrimvaleError BrimvaleError::rcloneNotInstalled() {
    return BrimvaleError(RcloneNotInstalled{});
}

} // namespace brimvale
