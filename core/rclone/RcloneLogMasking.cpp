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

// Flags of rclone's that take their value as the next argument, so it is not a positional one.
bool takesSeparateValue(std::string_view flag) {
    static constexpr std::array<std::string_view, 8> kValueFlags = {
        "--state",    "--result",   "--config",    "--log-level",
        "--log-file", "--checkers", "--transfers", "--rc-addr"};
    return std::find(kValueFlags.begin(), kValueFlags.end(), flag) != kValueFlags.end();
}

// Where the settings are in `config create NAME TYPE [KEY VALUE | KEY=VALUE]…` or
// `config update NAME [KEY VALUE | KEY=VALUE]…`. Keys are told by their place, never by what
// they say, so a remote called "pass" or a value that reads "token" is not taken for a key.
class ConfigWriteLayout {
public:
    explicit ConfigWriteLayout(const std::vector<std::string>& arguments)
        : arguments_(arguments)
        , positional_(arguments.size(), false) {
        std::vector<std::size_t> positions;
        bool afterSeparator = false;
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            const std::string_view text = arguments[i];
            if (!afterSeparator && text == "--") {
                afterSeparator = true;
            } else if (!afterSeparator && text.starts_with('-') && text.size() > 1) {
                if (text.find('=') == std::string_view::npos && takesSeparateValue(text)) {
                    ++i;
                }
            } else {
                positions.push_back(i);
            }
        }
        if (positions.size() < 2 || arguments[positions[0]] != "config") {
            return;
        }
        const std::string& command = arguments[positions[1]];
        std::size_t firstSetting = 0;
        if (command == "create") {
            firstSetting = 4; // config create NAME TYPE
        } else if (command == "update") {
            firstSetting = 3; // config update NAME
        } else {
            return;
        }
        for (const std::size_t position : positions) {
            positional_[position] = true;
        }
        for (std::size_t p = firstSetting; p < positions.size(); ++p) {
            const std::string& key = arguments[positions[p]];
            if (key.find('=') != std::string::npos) {
                settingInOne_.push_back(positions[p]);
            } else if (p + 1 < positions.size()) {
                if (isSecretKeyName(key)) {
                    secretValues_.push_back(positions[p + 1]);
                }
                ++p;
            }
        }
    }

    // Whether argument `index` is a positional argument of a configuration write.
    bool isPositional(std::size_t index) const { return positional_[index]; }

    // Argument `index` (positional) as the log shows it.
    std::string masked(std::size_t index) const {
        if (std::find(secretValues_.begin(), secretValues_.end(), index) != secretValues_.end()) {
            return std::string(kMask);
        }
        if (std::find(settingInOne_.begin(), settingInOne_.end(), index) != settingInOne_.end()) {
            return maskedArgument(arguments_[index]);
        }
        return arguments_[index];
    }

private:
    const std::vector<std::string>& arguments_;
    std::vector<bool> positional_;
    std::vector<std::size_t> secretValues_;
    std::vector<std::size_t> settingInOne_; // KEY=VALUE settings
};

} // namespace

bool isSecretKeyName(std::string_view name) {
    const std::string key = normalisedKey(name);
    return std::find(kSecretKeys.begin(), kSecretKeys.end(), key) != kSecretKeys.end() ||
           (name.starts_with("--") && isSecretFlag(name));
}

std::string argumentsForLog(const std::vector<std::string>& arguments) {
    std::vector<std::string> logged;
    logged.reserve(arguments.size());
    const ConfigWriteLayout layout(arguments);
    bool maskNext = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view text = arguments[i];
        if (maskNext) {
            logged.emplace_back(kMask);
            maskNext = false;
            continue;
        }
        if (layout.isPositional(i)) {
            logged.push_back(layout.masked(i));
            continue;
        }
        if (text.starts_with("--") && text != "--") {
            const auto equals = text.find('=');
            const std::string_view flag = text.substr(0, equals);
            if (isResultFlag(flag) || isSecretFlag(flag)) {
                if (equals == std::string_view::npos) {
                    logged.emplace_back(text);
                    maskNext = true;
                } else {
                    logged.push_back(std::string(text.substr(0, equals + 1)) + std::string(kMask));
                }
                continue;
            }
            logged.emplace_back(text);
            continue;
        }
        logged.push_back(maskedArgument(text));
    }
    std::string line;
    for (const auto& argument : logged) {
        if (!line.empty()) {
            line.push_back(' ');
        }
        line.append(argument);
    }
    return line;
}

} // namespace brimvale
