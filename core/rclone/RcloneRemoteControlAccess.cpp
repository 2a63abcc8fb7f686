#include "core/rclone/RcloneRemoteControlAccess.h"

#include <array>
#include <cerrno>
#include <sys/random.h>
#include <system_error>

namespace brimvale {
namespace {

// 128 bits each: far beyond guessing while the server runs.
constexpr std::size_t kRandomBytes = 16;

std::string randomHexadecimal() {
    std::array<unsigned char, kRandomBytes> bytes{};
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count = ::getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            throw std::system_error(errno, std::generic_category(),
                                    "could not make a password for rclone");
        }
        filled += static_cast<std::size_t>(count);
    }
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes) {
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 0xf]);
    }
    return text;
}

} // namespace

RcloneRemoteControlAccess RcloneRemoteControlAccess::random() {
    return {"u" + randomHexadecimal(), randomHexadecimal()};
}

std::vector<EnvironmentChange> RcloneRemoteControlAccess::environmentChanges() const {
    return {{"RCLONE_RC_USER", user},
            {"RCLONE_RC_PASS", password},
            {"RCLONE_RC_NO_AUTH", std::nullopt},
            {"RCLONE_RC_HTPASSWD", std::nullopt},
            {"RCLONE_RC_SERVE", std::nullopt},
            {"RCLONE_RC_FILES", std::nullopt},
            {"RCLONE_RC_ALLOW_ORIGIN", std::nullopt},
            // The notices that say the server is ready go to standard error, as plain text.
            {"RCLONE_LOG_LEVEL", std::nullopt},
            {"RCLONE_LOG_FILE", std::nullopt},
            {"RCLONE_QUIET", std::nullopt},
            {"RCLONE_VERBOSE", std::nullopt},
            {"RCLONE_USE_JSON_LOG", std::nullopt}};
}

std::string RcloneRemoteControlAccess::basicAuthorization() const {
    return "Basic " + base64Encoded(user + ":" + password);
}

std::string base64Encoded(std::string_view bytes) {
    static constexpr char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t at = 0;
    for (; at + 3 <= bytes.size(); at += 3) {
        const auto group = static_cast<unsigned>(static_cast<unsigned char>(bytes[at])) << 16 |
                           static_cast<unsigned>(static_cast<unsigned char>(bytes[at + 1])) << 8 |
                           static_cast<unsigned char>(bytes[at + 2]);
        for (const int shift : {18, 12, 6, 0}) {
            text.push_back(kAlphabet[(group >> shift) & 0x3f]);
        }
    }
    const std::size_t left = bytes.size() - at;
    if (left > 0) {
        unsigned group = static_cast<unsigned>(static_cast<unsigned char>(bytes[at])) << 16;
        if (left == 2) {
            group |= static_cast<unsigned>(static_cast<unsigned char>(bytes[at + 1])) << 8;
        }
        text.push_back(kAlphabet[(group >> 18) & 0x3f]);
        text.push_back(kAlphabet[(group >> 12) & 0x3f]);
        text.push_back(left == 2 ? kAlphabet[(group >> 6) & 0x3f] : '=');
        text.push_back('=');
    }
    return text;
}

namespace RcloneRemoteControlNotice {

bool saysServing(std::string_view line) {
    return line.find("Serving remote control on ") != std::string_view::npos;
}

std::optional<std::string> loginAddress(std::string_view line) {
    constexpr std::string_view kBefore = "Navigate to ";
    const auto start = line.find(kBefore);
    if (start == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view address = line.substr(start + kBefore.size());
    address = address.substr(0, address.find_first_of(" \t\r\n"));
    if (!address.starts_with("http://") || address.find("login_token=") == address.npos) {
        return std::nullopt;
    }
    return std::string(address);
}

} // namespace RcloneRemoteControlNotice

} // namespace brimvale
