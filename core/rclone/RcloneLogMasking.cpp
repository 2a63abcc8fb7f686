#include "core/rclone/RcloneLogMasking.h"

#include "core/rclone/Utf8Text.h"

#include <algorithm>
#include <array>

namespace brimvale {
namespace {

constexpr std::string_view kMask = "***";

constexpr std::array<std::string_view, 9> kSecretKeys = {
    "pass",  "key",           "key_pem", "secret_access_key", "service_account_credentials",
    "token", "client_secret", "sas_url", "connection_string"};

// A key or flag name in config-key form: lower case, dashes as underscores, leading dashes
// dropped.
std::string normalisedKey(std::string_view name) {
    while (name.starts_with('-')) {
        name.remove_prefix(1);
    }
    std::string key = Utf8Text::asciiLowercased(name);
    std::replace(key.begin(), key.end(), '-', '_');
    return key;
}

bool isResultFlag(std::string_view argument) {
    return argument == "--result";
}

// A backend flag such as --sftp-pass or --s3-secret-access-key: the key after the backend's
// prefix names a secret.
bool isSecretFlag(std::string_view flag) {
    if (!flag.starts_with("--")) {
        return false;
    }
    const std::string key = normalisedKey(flag);
    for (const auto secret : kSecretKeys) {
        if (key == secret || (key.size() > secret.size() && key.ends_with(secret) &&
                              key[key.size() - secret.size() - 1] == '_')) {
            return true;
        }
    }
    return false;
}

// The end of a connection-string value starting at `at`: quoted values ("…" or '…', with the
// quote doubled inside) run to their closing quote, others to the next ',' or ':'.
std::size_t endOfConnectionValue(std::string_view text, std::size_t at) {
    if (at < text.size() && (text[at] == '"' || text[at] == '\'')) {
        const char quote = text[at];
        for (std::size_t i = at + 1; i < text.size(); ++i) {
            if (text[i] == quote) {
                if (i + 1 < text.size() && text[i + 1] == quote) {
                    ++i;
                    continue;
                }
                return i + 1;
            }
        }
        return text.size();
    }
    const auto end = text.find_first_of(",:", at);
    return end == std::string_view::npos ? text.size() : end;
}

// A connection string "remote,name=value,…:path" (or ":backend,…:path") with secret values
// masked.
std::string maskedConnectionString(std::string_view text) {
    const auto firstComma = text.find(',');
    std::string result(text.substr(0, firstComma + 1));
    std::size_t at = firstComma + 1;
    while (at < text.size()) {
        const auto nameEnd = std::min(text.find_first_of("=,:", at), text.size());
        const std::string_view name = text.substr(at, nameEnd - at);
        result.append(name);
        at = nameEnd;
        if (at < text.size() && text[at] == '=') {
            const auto valueEnd = endOfConnectionValue(text, at + 1);
            result.push_back('=');
            result.append(isSecretKeyName(name) ? kMask : text.substr(at + 1, valueEnd - at - 1));
            at = valueEnd;
        }
        if (at >= text.size()) {
            break;
        }
        if (text[at] == ':') {
            result.append(text.substr(at));
            break;
        }
        result.push_back(text[at]);
        ++at;
    }
    return result;
}

// `KEY=VALUE` with a secret key masks the whole value (it may hold commas, as a token's JSON
// does); arguments with settings before their first '=' are connection strings.
std::string maskedArgument(std::string_view text) {
    const auto equals = text.find('=');
    if (equals == std::string_view::npos) {
        return std::string(text);
    }
    const auto comma = text.find(',');
    if (comma != std::string_view::npos && comma < equals) {
        return maskedConnectionString(text);
    }
    if (isSecretKeyName(text.substr(0, equals))) {
        return std::string(text.substr(0, equals + 1)) + std::string(kMask);
    }
    return std::string(text);
}

} // namespace

bool isSecretKeyName(std::string_view name) {
    const std::string key = normalisedKey(name);
    return std::find(kSecretKeys.begin(), kSecretKeys.end(), key) != kSecretKeys.end() ||
           (name.starts_with("--") && isSecretFlag(name));
}

std::string argumentsForLog(const std::vector<std::string>& arguments) {
    std::string line;
    bool maskNext = false;
    for (const auto& argument : arguments) {
        if (!line.empty()) {
            line.push_back(' ');
        }
        if (maskNext) {
            line.append(kMask);
            maskNext = false;
            continue;
        }
        const std::string_view text = argument;
        if (text.starts_with("--")) {
            const auto equals = text.find('=');
            const std::string_view flag = text.substr(0, equals);
            if (isResultFlag(flag) || isSecretFlag(flag)) {
                if (equals == std::string_view::npos) {
                    line.append(text);
                    maskNext = true;
                } else {
                    line.append(text.substr(0, equals + 1)).append(kMask);
                }
                continue;
            }
            line.append(text);
            continue;
        }
        if (isSecretKeyName(text)) {
            // `config create|update NAME KEY VALUE …`: the value follows its key.
            line.append(text);
            maskNext = true;
            continue;
        }
        line.append(maskedArgument(text));
    }
    return line;
}

} // namespace brimvale
