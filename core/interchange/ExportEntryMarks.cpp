#include "core/interchange/ExportEntryMarks.h"

namespace brimvale {

std::string excludedMimeType(std::string_view reason) {
    std::string type(kExcludedMimeTypePrefix);
    if (!reason.empty()) {
        type += '-';
        type += reason;
    }
    return type;
}

std::optional<std::string> excludedReason(std::string_view mimeType) {
    if (!mimeType.starts_with(kExcludedMimeTypePrefix)) {
        return std::nullopt;
    }
    mimeType.remove_prefix(kExcludedMimeTypePrefix.size());
    if (mimeType.empty()) {
        return std::string();
    }
    if (mimeType.front() != '-') {
        return std::nullopt;
    }
    return std::string(mimeType.substr(1));
}

std::optional<std::string> entryMarkNote(const FileNode& node) {
    const auto type = node.mimeType();
    if (!type) {
        return std::nullopt;
    }
    if (*type == kReadErrorMimeType) {
        return "read error";
    }
    if (*type == kSpecialFileMimeType) {
        return "special file";
    }
    if (const auto reason = excludedReason(*type)) {
        return reason->empty() ? std::string("excluded") : "excluded: " + *reason;
    }
    return std::nullopt;
}

} // namespace brimvale
