#pragma once

#include "core/model/FileNode.h"

#include <optional>
#include <string>
#include <string_view>

namespace brimvale {

// How an entry of an imported scan that the exporting tool could not measure normally is kept
// in the tree: as the node's MIME type, which the views already show as its kind ("Read
// error", "Excluded", "Special file") and which the export writes back as the same flag.
inline constexpr std::string_view kReadErrorMimeType = "inode/x-read-error";
inline constexpr std::string_view kSpecialFileMimeType = "inode/x-special";
// Followed by "-" and the tool's reason ("pattern", "otherfs", "kernfs", "frmlnk") when known.
inline constexpr std::string_view kExcludedMimeTypePrefix = "inode/x-excluded";

std::string excludedMimeType(std::string_view reason);
// The reason of an excluded entry's MIME type ("" when none was given); nullopt for others.
std::optional<std::string> excludedReason(std::string_view mimeType);

// A short note for listings ("read error", "excluded: otherfs", "special file"); none for an
// entry measured normally.
std::optional<std::string> entryMarkNote(const FileNode& node);

} // namespace brimvale
