#include "core/rclone/RemoteAccountLabel.h"

#include "core/rclone/JsonNestingDepth.h"

#include <array>
#include <cstdint>

namespace brimvale::RemoteAccountLabel {
namespace {

using Json = nlohmann::json;

// Standard base64 with padding, strictly: a length that is a multiple of 4, only the
// alphabet, and at most two "=" at the very end.
std::optional<std::string> decodeBase64(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    const auto valueOf = [](char c) -> int {
        if (c >= 'A' && c <= 'Z')
            return c - 'A';
        if (c >= 'a' && c <= 'z')
            return c - 'a' + 26;
        if (c >= '0' && c <= '9')
            return c - '0' + 52;
        if (c == '+')
            return 62;
        if (c == '/')
            return 63;
        return -1;
    };
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    for (std::size_t at = 0; at < text.size(); at += 4) {
        const bool lastGroup = at + 4 == text.size();
        int padding = 0;
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 4; ++k) {
            const char c = text[at + k];
            if (c == '=') {
                if (!lastGroup || k < 2) {
                    return std::nullopt;
                }
                ++padding;
                group <<= 6;
                continue;
            }
            const int value = valueOf(c);
            if (value < 0 || padding > 0) {
                return std::nullopt;
            }
            group = (group << 6) | static_cast<std::uint32_t>(value);
        }
        bytes.push_back(static_cast<char>((group >> 16) & 0xFF));
        if (padding < 2) {
            bytes.push_back(static_cast<char>((group >> 8) & 0xFF));
        }
        if (padding < 1) {
            bytes.push_back(static_cast<char>(group & 0xFF));
        }
    }
    return bytes;
}

std::optional<Json> parseObject(std::string_view text) {
    // Copying and comparing parsed values recurse; tokens are shallow objects.
    if (jsonNestingDepth(text) > kMaximumConfigJsonNesting) {
        return std::nullopt;
    }
    Json value = Json::parse(text.begin(), text.end(), nullptr, false);
    if (value.is_discarded() || !value.is_object()) {
        return std::nullopt;
    }
    return std::optional<Json>(std::move(value));
}

// The first of `keys` whose value is a non-empty string.
std::optional<std::string> firstNonEmptyString(const Json& object,
                                               std::initializer_list<const char*> keys) {
    for (const char* key : keys) {
        const auto found = object.find(key);
        if (found != object.end() && found->is_string() &&
            !found->get_ref<const std::string&>().empty()) {
            return found->get<std::string>();
        }
    }
    return std::nullopt;
}

std::optional<std::string> firstNonEmptySetting(const RemoteConfigSection& section,
                                                std::initializer_list<const char*> keys) {
    for (const char* key : keys) {
        const auto found = section.find(key);
        if (found != section.end() && !found->second.empty()) {
            return found->second;
        }
    }
    return std::nullopt;
}

std::optional<std::string> labelFromTokenField(const Json& token, const char* key) {
    const auto found = token.find(key);
    if (found == token.end() || !found->is_string()) {
        return std::nullopt;
    }
    return labelFromJWTAccessToken(found->get_ref<const std::string&>());
}

} // namespace

std::optional<Json> decodeJWTPayload(std::string_view token) {
    const auto firstDot = token.find('.');
    if (firstDot == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view payload = token.substr(firstDot + 1);
    payload = payload.substr(0, payload.find('.'));
    std::string base64(payload);
    for (char& c : base64) {
        if (c == '-') {
            c = '+';
        } else if (c == '_') {
            c = '/';
        }
    }
    base64.append((4 - base64.size() % 4) % 4, '=');
    const auto bytes = decodeBase64(base64);
    if (!bytes) {
        return std::nullopt;
    }
    return parseObject(*bytes);
}

std::optional<std::string> labelFromJWTAccessToken(std::string_view token) {
    const auto payload = decodeJWTPayload(token);
    if (!payload) {
        return std::nullopt;
    }
    if (auto label = firstNonEmptyString(
            *payload, {"email", "preferred_username", "unique_name", "upn", "name"})) {
        return label;
    }
    const auto subject = firstNonEmptyString(*payload, {"sub"});
    if (subject && subject->find('@') != std::string::npos) {
        return subject;
    }
    return std::nullopt;
}

std::optional<std::string> pick(const RemoteConfigSection* section, std::string_view,
                                std::string_view backendType) {
    if (section == nullptr) {
        return std::nullopt;
    }
    if (auto label = firstNonEmptySetting(
            *section, {"client_email", "account", "user", "login", "username"})) {
        return label;
    }
    if (const auto tokenText = section->find("token"); tokenText != section->end()) {
        if (const auto token = parseObject(tokenText->second)) {
            if (auto label = firstNonEmptyString(
                    *token, {"email", "preferred_username", "username", "user_id"})) {
                return label;
            }
            if (auto label = labelFromTokenField(*token, "id_token")) {
                return label;
            }
            if (auto label = labelFromTokenField(*token, "access_token")) {
                return label;
            }
        }
    }
    if (backendType == "drive") {
        return firstNonEmptySetting(*section, {"team_drive"});
    }
    return std::nullopt;
}

} // namespace brimvale::RemoteAccountLabel
