#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brimvale {

// A short human name for an item's type, from its MIME type: "Google Doc", "PDF", "Image"…,
// else the lower-cased MIME type itself; none for an empty type.
std::optional<std::string> displayKindForMimeType(std::string_view mimeType);

} // namespace brimvale
