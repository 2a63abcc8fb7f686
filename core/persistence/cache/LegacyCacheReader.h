#pragma once

#include "core/model/FileNode.h"

#include <optional>
#include <span>

namespace brimvale {

// Reads the older cache format: one nested JSON object per node with "name", "path",
// "isDirectory", "size", "fractionOfParent" and "children" (all required) and the optional
// "modifiedDate" (seconds since 2001-01-01), "providerID" and "mimeType". Fractions are kept;
// parent links are not set and children not sorted. None when the bytes are not such JSON.
// Deep nesting is handled without recursion.
std::optional<FileNodeRef> readLegacyCacheTree(std::span<const std::uint8_t> json);

} // namespace brimvale
