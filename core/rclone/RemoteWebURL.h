#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brimvale {

class FileNode;

// What a link needs to know about the account beyond the node.
struct RemoteWebContext {
    // For object storage whose scans start at a bucket: the stored scan root, "bucket" or
    // "bucket/prefix". Absent: the scan root is the whole remote, and a node's first path
    // component is its bucket.
    std::optional<std::string> scanRootBucket;
    // False for S3-compatible services other than AWS, which have no console to link to.
    bool s3EndpointIsAWS = true;
};

// Links from a scanned node to its page in the provider's own web application, by backend
// type. Node paths are relative to the scan root ("/" is the root). Pure: safe on any thread.
namespace RemoteWebURL {

std::optional<std::string> url(std::string_view rcloneType, const FileNode& node,
                               const RemoteWebContext& context = {});

// Whether the lookup knows the type (some known types, such as "sftp", have no link).
bool recognisesType(std::string_view rcloneType);

// Each "/"-separated segment percent-encoded for a URL path: everything but letters, digits
// and "-._~" is encoded as UTF-8 bytes.
std::string percentEncodedPath(std::string_view path);
// A query value: as a path, and "/" is kept too.
std::string percentEncodedQueryValue(std::string_view value);

} // namespace RemoteWebURL

} // namespace brimvale
