#include "core/rclone/RcloneListingParser.h"

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/FlatEntryReader.h"
#include "core/rclone/Utf8Text.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>
#include <string>

namespace brimvale {
namespace {

using Json = nlohmann::json;

// A decoding failure, before it is put into the listing's message.
struct DecodingFailure {
    std::string description;
};

std::string kindOf(const Json& value) {
    switch (value.type()) {
    case Json::value_t::null:
        return "null";
    case Json::value_t::boolean:
        return "a boolean";
    case Json::value_t::string:
        return "a string";
    case Json::value_t::array:
        return "an array";
    case Json::value_t::object:
        return "an object";
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float:
        return "the number " + value.dump();
    default:
        return "an unreadable value";
    }
}

std::string atPath(const std::string& codingPath) {
    return " at path " + codingPath;
}

[[noreturn]] void typeMismatch(const std::string& expected, const Json& found,
                               const std::string& codingPath) {
    throw DecodingFailure{"Type mismatch (expected " + expected + "): Expected to decode " +
                          expected + " but found " + kindOf(found) + " instead." +
                          atPath(codingPath)};
}

[[noreturn]] void missingValue(const std::string& expected, const std::string& codingPath) {
    throw DecodingFailure{"Missing value (expected " + expected + "): Expected " + expected +
                          " value but found null instead." + atPath(codingPath)};
}

[[noreturn]] void missingKey(const std::string& key, const std::string& containerPath) {
    throw DecodingFailure{"Missing key \"" + key + "\": No value associated with key \"" + key +
                          "\"." + atPath(containerPath)};
}

class EntryDecoder {
public:
    EntryDecoder(const Json& object, std::string containerPath)
        : object_(object)
        , containerPath_(std::move(containerPath)) {}

    std::string requiredString(const char* key) const {
        const Json& value = required(key, "String");
        if (!value.is_string()) {
            typeMismatch("String", value, pathOf(key));
        }
        return value.get<std::string>();
    }

    std::optional<std::string> optionalString(const char* key) const {
        const Json* value = optional(key);
        if (value == nullptr) {
            return std::nullopt;
        }
        if (!value->is_string()) {
            typeMismatch("String", *value, pathOf(key));
        }
        return value->get<std::string>();
    }

    bool requiredBool(const char* key) const {
        const Json& value = required(key, "Bool");
        if (!value.is_boolean()) {
            typeMismatch("Bool", value, pathOf(key));
        }
        return value.get<bool>();
    }

    std::int64_t requiredInt64(const char* key) const {
        const Json& value = required(key, "Int64");
        if (value.is_number_integer() && !value.is_number_unsigned()) {
            return value.get<std::int64_t>();
        }
        if (value.is_number_unsigned()) {
            const auto number = value.get<std::uint64_t>();
            if (number <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
                return static_cast<std::int64_t>(number);
            }
        } else if (value.is_number_float()) {
            // Whole numbers written with a fraction or exponent (1e3, 12.0) are accepted when
            // they fit; -2^63 is the only power of two at the edge that does.
            const double number = value.get<double>();
            if (std::isfinite(number) && std::trunc(number) == number && number >= -0x1p63 &&
                number < 0x1p63) {
                return static_cast<std::int64_t>(number);
            }
        }
        typeMismatch("Int64", value, pathOf(key));
    }

private:
    std::string pathOf(const char* key) const { return containerPath_ + "." + key; }

    const Json& required(const char* key, const char* expected) const {
        const auto found = object_.find(key);
        if (found == object_.end()) {
            missingKey(key, containerPath_);
        }
        if (found->is_null()) {
            missingValue(expected, pathOf(key));
        }
        return *found;
    }

    const Json* optional(const char* key) const {
        const auto found = object_.find(key);
        return found == object_.end() || found->is_null() ? nullptr : &*found;
    }

    const Json& object_;
    std::string containerPath_;
};

RcloneEntry decodeEntry(const Json& element, std::size_t index) {
    const std::string elementPath = "Index " + std::to_string(index);
    if (!element.is_object()) {
        typeMismatch("Object", element, elementPath);
    }
    const EntryDecoder decoder(element, elementPath);
    RcloneEntry entry;
    entry.path = decoder.requiredString("Path");
    entry.name = decoder.requiredString("Name");
    entry.rawSize = decoder.requiredInt64("Size");
    entry.modTime = decoder.optionalString("ModTime");
    entry.isDir = decoder.requiredBool("IsDir");
    entry.id = decoder.optionalString("ID");
    entry.mimeType = decoder.optionalString("MimeType");
    return entry;
}

std::vector<RcloneEntry> decodeEntries(const Json& document) {
    if (!document.is_array()) {
        typeMismatch("Array", document, "");
    }
    std::vector<RcloneEntry> entries;
    entries.reserve(document.size());
    std::size_t index = 0;
    for (const Json& element : document) {
        entries.push_back(decodeEntry(element, index++));
    }
    return entries;
}

// The parser's own explanation, without its "[json.exception.…] " tag.
std::string explanationOf(const Json::exception& error) {
    std::string_view text = error.what();
    if (text.starts_with("[json.exception.")) {
        const auto tagEnd = text.find("] ");
        if (tagEnd != std::string_view::npos) {
            text.remove_prefix(tagEnd + 2);
        }
    }
    return std::string(text);
}

} // namespace

std::vector<RcloneEntry> parseJSON(std::string_view data, std::string_view listingContext) {
    std::string description;
    try {
        const Json document = Json::parse(data.begin(), data.end());
        return decodeEntries(document);
    } catch (const Json::exception& error) {
        description =
            "Invalid or incomplete JSON (often truncated output): " + explanationOf(error);
    } catch (const DecodingFailure& failure) {
        description = failure.description;
    }
    const std::string starts = Utf8Text::decodeLossy(data.substr(0, 200));
    const std::string ends =
        Utf8Text::decodeLossy(data.substr(data.size() - std::min<std::size_t>(120, data.size())));
    throw BrimvaleError::parseError("Could not parse folder listing for " +
                                    std::string(listingContext) + ": " + description +
                                    " (JSON length: " + std::to_string(data.size()) +
                                    " bytes; starts: " + starts + "; ends: " + ends + ")");
}

std::optional<RcloneEntry> tryParseEntryLine(std::string_view line, std::size_t index) {
    if (auto entry = readFlatEntry(line)) {
        return entry;
    }
    const Json element = Json::parse(line.begin(), line.end(), nullptr, false);
    if (element.is_discarded()) {
        return std::nullopt;
    }
    try {
        return decodeEntry(element, index);
    } catch (const DecodingFailure&) {
        return std::nullopt;
    }
}

RcloneEntry parseEntryLine(std::string_view line, std::size_t index,
                           std::string_view listingContext) {
    if (auto entry = readFlatEntry(line)) {
        return std::move(*entry);
    }
    std::string description;
    try {
        return decodeEntry(Json::parse(line.begin(), line.end()), index);
    } catch (const Json::exception& error) {
        description =
            "Invalid or incomplete JSON (often truncated output): " + explanationOf(error);
    } catch (const DecodingFailure& failure) {
        description = failure.description;
    }
    throw BrimvaleError::parseError("Could not parse folder listing for " +
                                    std::string(listingContext) + ": " + description + " (entry " +
                                    std::to_string(index + 1) + ": " +
                                    Utf8Text::decodeLossy(line.substr(0, 200)) + ")");
}

} // namespace brimvale
