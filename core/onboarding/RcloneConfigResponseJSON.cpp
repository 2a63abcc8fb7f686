#include "core/onboarding/RcloneConfigResponseJSON.h"

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/JsonNestingDepth.h"
#include "core/rclone/Utf8Text.h"

#include <nlohmann/json.hpp>

namespace brimvale {
namespace {

using Json = nlohmann::json;

// Why the text is not a configuration response.
class InvalidResponse : public std::exception {
public:
    explicit InvalidResponse(std::string reason)
        : reason_(std::move(reason)) {}
    const char* what() const noexcept override { return reason_.c_str(); }

private:
    std::string reason_;
};

bool isValidUtf8(std::string_view bytes) {
    return Utf8Text::decodeLossy(bytes) == bytes;
}

const Json* member(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

std::string textMember(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (value == nullptr) {
        return {};
    }
    if (!value->is_string()) {
        throw InvalidResponse(std::string("\"") + key + "\" is not text");
    }
    return value->get<std::string>();
}

bool boolMember(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (value == nullptr) {
        return false;
    }
    if (!value->is_boolean()) {
        throw InvalidResponse(std::string("\"") + key + "\" is not a boolean");
    }
    return value->get<bool>();
}

RcloneConfigResponseJSON decode(std::string_view text) {
    if (jsonNestingDepth(text) > kMaximumConfigJsonNesting) {
        throw InvalidResponse("nested too deeply");
    }
    Json json;
    try {
        json = Json::parse(text);
    } catch (const Json::exception& error) {
        throw InvalidResponse(error.what());
    }
    if (!json.is_object()) {
        throw InvalidResponse("not an object");
    }
    RcloneConfigResponseJSON response;
    response.state = textMember(json, "State");
    response.error = textMember(json, "Error");
    if (const Json* option = member(json, "Option")) {
        if (!option->is_object()) {
            throw InvalidResponse("\"Option\" is not an object");
        }
        response.option = RcloneConfigOptionJSON{
            .name = textMember(*option, "Name"),
            .type = textMember(*option, "Type"),
            .defaultStr = textMember(*option, "DefaultStr"),
            .help = textMember(*option, "Help"),
            .required = boolMember(*option, "Required"),
            .exclusive = boolMember(*option, "Exclusive"),
        };
    }
    return response;
}

} // namespace

RcloneConfigResponseJSON parseRcloneConfigResponse(std::string_view output,
                                                   const std::string& remoteName) {
    if (!isValidUtf8(output)) {
        throw BrimvaleError::scanFailed(remoteName, "config: invalid UTF-8");
    }
    try {
        return decode(Utf8Text::trimWhitespaceAndNewlines(output));
    } catch (const InvalidResponse& error) {
        throw BrimvaleError::scanFailed(remoteName,
                                        std::string("Invalid configuration data: ") + error.what());
    }
}

} // namespace brimvale
