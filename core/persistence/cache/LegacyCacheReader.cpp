#include "core/persistence/cache/LegacyCacheReader.h"

#include <nlohmann/json.hpp>

#include <limits>
#include <string>
#include <vector>

namespace brimvale {
namespace {

using Json = nlohmann::json;

class MalformedNode : public std::exception {};

const Json& required(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end()) {
        throw MalformedNode();
    }
    return *found;
}

const Json* optionalValue(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) {
        return nullptr;
    }
    return &*found;
}

std::string text(const Json& value) {
    if (!value.is_string()) {
        throw MalformedNode();
    }
    return value.get<std::string>();
}

std::int64_t byteCount(const Json& value) {
    if (value.is_number_unsigned()) {
        const auto unsignedValue = value.get<std::uint64_t>();
        if (unsignedValue > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            throw MalformedNode();
        }
        return static_cast<std::int64_t>(unsignedValue);
    }
    if (!value.is_number_integer()) {
        throw MalformedNode();
    }
    return value.get<std::int64_t>();
}

double number(const Json& value) {
    if (!value.is_number()) {
        throw MalformedNode();
    }
    return value.get<double>();
}

FileNodeRef makeNode(const Json& object) {
    if (!object.is_object()) {
        throw MalformedNode();
    }
    const Json& isDirectory = required(object, "isDirectory");
    if (!isDirectory.is_boolean() || !required(object, "children").is_array()) {
        throw MalformedNode();
    }
    FileNodeFields fields{.name = text(required(object, "name")),
                          .path = text(required(object, "path")),
                          .isDirectory = isDirectory.get<bool>(),
                          .size = byteCount(required(object, "size"))};
    if (const Json* modified = optionalValue(object, "modifiedDate")) {
        fields.modifiedDate = Date{number(*modified)};
    }
    if (const Json* providerID = optionalValue(object, "providerID")) {
        fields.providerID = text(*providerID);
    }
    if (const Json* mimeType = optionalValue(object, "mimeType")) {
        fields.mimeType = text(*mimeType);
    }
    const double fraction = number(required(object, "fractionOfParent"));
    FileNodeRef node = FileNode::make(std::move(fields));
    node->setFractionOfParent(fraction);
    return node;
}

} // namespace

std::optional<FileNodeRef> readLegacyCacheTree(std::span<const std::uint8_t> json) {
    Json document = Json::parse(json.begin(), json.end(), nullptr, /*allow_exceptions=*/false);
    if (document.is_discarded()) {
        return std::nullopt;
    }
    try {
        FileNodeRef root = makeNode(document);
        struct Frame {
            const Json* object;
            FileNode* node;
        };
        std::vector<Frame> stack{{&document, root.get()}};
        while (!stack.empty()) {
            const Frame frame = stack.back();
            stack.pop_back();
            const Json& children = (*frame.object)["children"];
            auto& childNodes = frame.node->mutableChildren();
            childNodes.reserve(children.size());
            for (const Json& child : children) {
                childNodes.push_back(makeNode(child));
                if (!child["children"].empty()) {
                    stack.push_back({&child, childNodes.back().get()});
                }
            }
        }
        return root;
    } catch (const MalformedNode&) {
        return std::nullopt;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

} // namespace brimvale
