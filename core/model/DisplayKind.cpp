#include "core/model/DisplayKind.h"

#include <algorithm>
#include <utility>

namespace brimvale {
namespace {

constexpr std::pair<std::string_view, std::string_view> kExactKinds[] = {
    {"application/vnd.google-apps.document", "Google Doc"},
    {"application/vnd.google-apps.spreadsheet", "Google Sheet"},
    {"application/vnd.google-apps.presentation", "Google Slides"},
    {"application/vnd.google-apps.form", "Google Form"},
    {"application/vnd.google-apps.drawing", "Google Drawing"},
    {"application/vnd.google-apps.site", "Google Site"},
    {"application/vnd.google-apps.shortcut", "Shortcut"},
    {"application/vnd.google-apps.map", "Google My Maps"},
    {"application/vnd.google-apps.script", "Apps Script"},
    {"application/pdf", "PDF"},
    {"text/plain", "Plain text"},
    // What WebDAV servers (and rclone for local folders) call a folder.
    {"inode/directory", "Folder"},
    // Entries of a scan opened from an export that the exporting tool could not measure.
    {"inode/x-read-error", "Read error"},
    {"inode/x-special", "Special file"},
};

constexpr std::pair<std::string_view, std::string_view> kPrefixKinds[] = {
    {"image/", "Image"},
    {"video/", "Video"},
    {"audio/", "Audio"},
    {"inode/x-excluded", "Excluded"},
};

} // namespace

std::optional<std::string> displayKindForMimeType(std::string_view mimeType) {
    if (mimeType.empty()) {
        return std::nullopt;
    }
    std::string lowered(mimeType);
    std::transform(lowered.begin(), lowered.end(), lowered.begin(), [](char c) {
        return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    });
    for (const auto& [type, kind] : kExactKinds) {
        if (lowered == type) {
            return std::string(kind);
        }
    }
    for (const auto& [prefix, kind] : kPrefixKinds) {
        if (lowered.starts_with(prefix)) {
            return std::string(kind);
        }
    }
    return lowered;
}

} // namespace brimvale
