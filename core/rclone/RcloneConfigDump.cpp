#include "core/rclone/RcloneConfigDump.h"

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/JsonNestingDepth.h"
#include "core/rclone/RcloneProviderType.h"

#include <nlohmann/json.hpp>

namespace brimvale {
namespace {

using Json = nlohmann::json;

std::string valueText(const Json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "true" : "false";
    }
    // Numbers in their shortest decimal form, objects and arrays as compact JSON.
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// The parser's explanation of a malformed dump, without its "[json.exception.…] " tag and
// without the text it read last (which may be part of a secret): where, and what kind of
// mistake. Other errors (a number too large) quote the input, so only their kind is told.
std::string explanationOf(const Json::exception& error) {
    if (dynamic_cast<const Json::parse_error*>(&error) == nullptr) {
        return "a value rclone cannot have written";
    }
    std::string_view text = error.what();
    if (const auto tagEnd = text.find("] "); text.starts_with("[json.") && tagEnd != text.npos) {
        text.remove_prefix(tagEnd + 2);
    }
    if (const auto quoted = text.find("; last read: "); quoted != text.npos) {
        text = text.substr(0, quoted);
    }
    return std::string(text);
}

} // namespace

RcloneConfigDump parseConfigDump(std::string_view json) {
    // Values are printed back as JSON text, which recurses into them.
    if (jsonNestingDepth(json) > kMaximumConfigJsonNesting) {
        throw BrimvaleError::parseError(
            "Could not parse the account configuration: nested deeper than " +
            std::to_string(kMaximumConfigJsonNesting) + " levels");
    }
    Json document;
    try {
        document = Json::parse(json.begin(), json.end());
    } catch (const Json::exception& error) {
        throw BrimvaleError::parseError("Could not parse the account configuration: " +
                                        explanationOf(error));
    }
    if (!document.is_object()) {
        throw BrimvaleError::parseError(
            "Could not parse the account configuration: expected an object of remotes but "
            "found " +
            std::string(document.type_name()));
    }
    RcloneConfigDump dump;
    for (const auto& [name, section] : document.items()) {
        if (!section.is_object()) {
            continue;
        }
        RemoteConfigSection settings;
        for (const auto& [key, value] : section.items()) {
            if (!value.is_null()) {
                settings.emplace(key, valueText(value));
            }
        }
        dump.emplace(name, std::move(settings));
    }
    return dump;
}

std::vector<ConfiguredRemote> configuredRemotes(const RcloneConfigDump& dump) {
    std::vector<ConfiguredRemote> remotes;
    remotes.reserve(dump.size());
    for (const auto& [name, section] : dump) {
        const auto type = section.find("type");
        remotes.push_back({name, type == section.end()
                                     ? std::string()
                                     : RcloneProviderType::canonical(type->second)});
    }
    return remotes;
}

} // namespace brimvale
