#include "core/rclone/RemoteWebURL.h"

#include "core/model/FileNode.h"

#include <algorithm>
#include <array>

namespace brimvale::RemoteWebURL {
namespace {

constexpr std::string_view kAWSConsole = "https://s3.console.aws.amazon.com";
constexpr std::string_view kGoogleCloudConsole = "https://console.cloud.google.com";

bool isUnreserved(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

std::string percentEncoded(std::string_view text, bool keepSlash) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        if (isUnreserved(c) || (keepSlash && c == '/')) {
            encoded.push_back(c);
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded.push_back('%');
            encoded.push_back(kHex[byte >> 4]);
            encoded.push_back(kHex[byte & 0x0F]);
        }
    }
    return encoded;
}

// The node's path below the scan root, without the leading "/"; empty for the root.
std::string relativePath(const FileNode& node) {
    std::string path = node.path();
    std::size_t start = 0;
    while (start < path.size() && path[start] == '/') {
        ++start;
    }
    return path.substr(start);
}

std::string joinedKey(std::string_view prefix, std::string_view rest) {
    while (prefix.ends_with('/')) {
        prefix.remove_suffix(1);
    }
    if (prefix.empty()) {
        return std::string(rest);
    }
    if (rest.empty()) {
        return std::string(prefix);
    }
    return std::string(prefix) + "/" + std::string(rest);
}

struct BucketAndKey {
    std::string bucket; // empty: above every bucket (the root of a whole remote)
    std::string key;    // the object key, or the folder's key prefix without a final "/"
};

BucketAndKey bucketAndKey(const FileNode& node, const RemoteWebContext& context) {
    const std::string path = relativePath(node);
    if (context.scanRootBucket) {
        std::string_view root = *context.scanRootBucket;
        while (root.starts_with('/')) {
            root.remove_prefix(1);
        }
        const auto slash = root.find('/');
        const std::string_view bucket = root.substr(0, slash);
        const std::string_view prefix =
            slash == std::string_view::npos ? std::string_view() : root.substr(slash + 1);
        return {std::string(bucket), joinedKey(prefix, path)};
    }
    const auto slash = path.find('/');
    if (slash == std::string::npos) {
        return {path, {}};
    }
    return {path.substr(0, slash), path.substr(slash + 1)};
}

std::optional<std::string> s3URL(const FileNode& node, const RemoteWebContext& context) {
    if (!context.s3EndpointIsAWS) {
        return std::nullopt;
    }
    const auto [bucket, key] = bucketAndKey(node, context);
    const std::string console(kAWSConsole);
    if (bucket.empty()) {
        return console + "/s3/buckets";
    }
    if (!node.isDirectory()) {
        return console + "/s3/object/" + percentEncodedPath(bucket) +
               "?prefix=" + percentEncodedQueryValue(key);
    }
    std::string url = console + "/s3/buckets/" + percentEncodedPath(bucket) + "?";
    if (!key.empty()) {
        url += "prefix=" + percentEncodedQueryValue(key + "/") + "&";
    }
    return url + "tab=objects";
}

std::optional<std::string> gcsURL(const FileNode& node, const RemoteWebContext& context) {
    const auto [bucket, key] = bucketAndKey(node, context);
    const std::string console(kGoogleCloudConsole);
    if (bucket.empty()) {
        return console + "/storage/browser";
    }
    if (!node.isDirectory()) {
        return console + "/storage/browser/_details/" + percentEncodedPath(bucket) + "/" +
               percentEncodedPath(key);
    }
    std::string url = console + "/storage/browser/" + percentEncodedPath(bucket);
    if (!key.empty()) {
        url += "?prefix=" + percentEncodedQueryValue(key + "/");
    }
    return url;
}

std::optional<std::string> withID(const FileNode& node, std::string_view prefix) {
    const auto id = node.providerID();
    if (!id || id->empty()) {
        return std::nullopt;
    }
    return std::string(prefix) + percentEncodedPath(*id);
}

// "<site>/<route>/<path>", or `atRoot` for the scan root.
std::string pathPage(const FileNode& node, std::string_view site, std::string_view route,
                     std::string_view atRoot) {
    const std::string path = relativePath(node);
    if (path.empty()) {
        return std::string(atRoot);
    }
    return std::string(site) + std::string(route) + "/" + percentEncodedPath(path);
}

constexpr std::array<std::string_view, 4> kKnownWithoutLink = {"seafile", "sftp", "storj", "swift"};

} // namespace

std::string percentEncodedPath(std::string_view path) {
    return percentEncoded(path, true);
}

std::string percentEncodedQueryValue(std::string_view value) {
    return percentEncoded(value, true);
}

std::optional<std::string> url(std::string_view type, const FileNode& node,
                               const RemoteWebContext& context) {
    if (type == "drive") {
        if (node.isDirectory()) {
            return withID(node, "https://drive.google.com/drive/folders/");
        }
        auto fileURL = withID(node, "https://drive.google.com/file/d/");
        if (fileURL) {
            *fileURL += "/view";
        }
        return fileURL;
    }
    if (type == "dropbox") {
        return pathPage(node, "https://www.dropbox.com", "/home", "https://www.dropbox.com/home");
    }
    if (type == "onedrive") {
        const auto id = node.providerID();
        if (!id || id->empty()) {
            return std::nullopt;
        }
        return "https://onedrive.live.com/?id=" + percentEncoded(*id, false);
    }
    if (type == "box") {
        return withID(node, node.isDirectory() ? "https://app.box.com/folder/"
                                               : "https://app.box.com/file/");
    }
    if (type == "mega") {
        return withID(node, "https://mega.nz/folder/");
    }
    if (type == "jottacloud") {
        return pathPage(node, "https://www.jottacloud.com", "/files",
                        "https://www.jottacloud.com/");
    }
    if (type == "opendrive") {
        return pathPage(node, "https://www.opendrive.com", "/files",
                        "https://www.opendrive.com/files");
    }
    if (type == "koofr") {
        return pathPage(node, "https://app.koofr.net", "/files", "https://app.koofr.net/");
    }
    if (type == "putio") {
        if (relativePath(node).empty()) {
            return "https://app.put.io/files";
        }
        return withID(node, "https://app.put.io/files/");
    }
    if (type == "yandex") {
        return pathPage(node, "https://disk.yandex.com", "/client/disk",
                        "https://disk.yandex.com/");
    }
    if (type == "s3") {
        return s3URL(node, context);
    }
    if (type == "gcs") {
        return gcsURL(node, context);
    }
    if (type == "azureblob") {
        return "https://portal.azure.com/#view/HubsExtension/BrowseResource/resourceType/"
               "Microsoft.Storage%2FStorageAccount";
    }
    if (type == "hidrive") {
        return "https://hidrive.ionos.com/";
    }
    if (type == "sugarsync") {
        return "https://app.sugarsync.com/";
    }
    if (type == "protondrive") {
        return "https://drive.proton.me/";
    }
    if (type == "iclouddrive") {
        return "https://www.icloud.com/iclouddrive";
    }
    return std::nullopt;
}

bool recognisesType(std::string_view type) {
    static constexpr std::array<std::string_view, 17> kLinked = {
        "drive",     "dropbox", "onedrive",  "box",         "mega",       "jottacloud",
        "opendrive", "koofr",   "putio",     "yandex",      "s3",         "gcs",
        "azureblob", "hidrive", "sugarsync", "protondrive", "iclouddrive"};
    return std::find(kLinked.begin(), kLinked.end(), type) != kLinked.end() ||
           std::find(kKnownWithoutLink.begin(), kKnownWithoutLink.end(), type) !=
               kKnownWithoutLink.end();
}

} // namespace brimvale::RemoteWebURL
