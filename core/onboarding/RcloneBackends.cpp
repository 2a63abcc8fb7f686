#include "core/onboarding/RcloneBackends.h"

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/JsonNestingDepth.h"
#include "core/rclone/Utf8Text.h"
#include "core/support/ByteNames.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <mutex>

namespace brimvale {

const RcloneBackendOption* RcloneBackend::option(std::string_view optionName) const {
    const auto found = std::ranges::find(options, optionName, &RcloneBackendOption::name);
    return found == options.end() ? nullptr : &*found;
}

namespace RcloneBackends {
namespace {

const std::string kLabel = "rclone backends";

[[noreturn]] void refuse(const std::string& why) {
    throw BrimvaleError::scanFailed(kLabel, "Invalid backend list: " + why);
}

std::string text(const nlohmann::json& object, const char* key) {
    const auto value = object.find(key);
    if (value == object.end() || value->is_null()) {
        return {};
    }
    if (!value->is_string()) {
        refuse(std::string(key) + " is not text");
    }
    return value->get<std::string>();
}

bool flag(const nlohmann::json& object, const char* key) {
    const auto value = object.find(key);
    return value != object.end() && value->is_boolean() && value->get<bool>();
}

RcloneBackendOption parseOption(const nlohmann::json& object) {
    if (!object.is_object()) {
        refuse("an option is not an object");
    }
    RcloneBackendOption option{.name = text(object, "Name"),
                               .help = text(object, "Help"),
                               .type = text(object, "Type"),
                               .defaultText = text(object, "DefaultStr"),
                               .provider = text(object, "Provider"),
                               .required = flag(object, "Required"),
                               .isPassword = flag(object, "IsPassword"),
                               .advanced = flag(object, "Advanced"),
                               .exclusive = flag(object, "Exclusive")};
    if (option.name.empty()) {
        refuse("an option has no name");
    }
    // "Hide" is a bit set; its first bit keeps the option out of the configuration.
    if (const auto hide = object.find("Hide"); hide != object.end() && hide->is_number_integer()) {
        option.hiddenFromConfiguration = (hide->get<std::int64_t>() & 1) != 0;
    }
    if (const auto examples = object.find("Examples");
        examples != object.end() && examples->is_array()) {
        for (const auto& example : *examples) {
            if (!example.is_object()) {
                refuse("an example is not an object");
            }
            option.examples.push_back({.value = text(example, "Value"),
                                       .help = text(example, "Help"),
                                       .provider = text(example, "Provider")});
        }
    }
    return option;
}

} // namespace

RcloneBackendList parse(std::string_view json) {
    if (!ByteNames::isValidUtf8(json)) {
        refuse("not UTF-8");
    }
    if (jsonNestingDepth(json) > kMaximumConfigJsonNesting) {
        refuse("nested too deeply");
    }
    nlohmann::json document;
    try {
        document = nlohmann::json::parse(json);
    } catch (const nlohmann::json::exception& error) {
        refuse(error.what());
    }
    if (!document.is_array()) {
        refuse("not a list");
    }
    RcloneBackendList backends;
    for (const auto& entry : document) {
        if (!entry.is_object()) {
            refuse("a backend is not an object");
        }
        RcloneBackend backend{.type = text(entry, "Prefix"),
                              .name = text(entry, "Name"),
                              .description = text(entry, "Description")};
        if (backend.type.empty()) {
            backend.type = backend.name;
        }
        if (backend.type.empty()) {
            refuse("a backend has no name");
        }
        if (flag(entry, "Hide")) {
            continue;
        }
        if (const auto options = entry.find("Options"); options != entry.end()) {
            if (!options->is_array() && !options->is_null()) {
                refuse("Options is not a list");
            }
            if (options->is_array()) {
                for (const auto& option : *options) {
                    backend.options.push_back(parseOption(option));
                }
            }
        }
        backends.push_back(std::move(backend));
    }
    return backends;
}

bool appliesToProvider(std::string_view provider, std::string_view chosenProvider) {
    if (provider.empty()) {
        return true;
    }
    const bool excluding = provider.starts_with('!');
    if (excluding) {
        provider.remove_prefix(1);
    }
    bool listed = false;
    while (!provider.empty()) {
        const std::size_t comma = provider.find(',');
        const std::string_view name =
            Utf8Text::trimWhitespaceAndNewlines(provider.substr(0, comma));
        listed = listed || name == chosenProvider;
        provider =
            comma == std::string_view::npos ? std::string_view() : provider.substr(comma + 1);
    }
    return listed != excluding;
}

std::shared_ptr<const RcloneBackendList> load(const RcloneRunner& runner,
                                              std::stop_token stopToken) {
    static std::mutex mutex;
    static std::map<std::string, std::shared_ptr<const RcloneBackendList>> loaded;
    const auto program = runner.resolveRclonePath();
    if (!program) {
        throw BrimvaleError::rcloneNotInstalled();
    }
    {
        const std::scoped_lock lock(mutex);
        if (const auto found = loaded.find(*program); found != loaded.end()) {
            return found->second;
        }
    }
    auto backends = std::make_shared<const RcloneBackendList>(parse(
        runner.runRcloneCollectingStdout({"config", "providers"}, kLabel, std::move(stopToken))));
    const std::scoped_lock lock(mutex);
    return loaded.try_emplace(*program, std::move(backends)).first->second;
}

} // namespace RcloneBackends

} // namespace brimvale
