#include "core/interchange/NcduExportWriter.h"

#include "core/interchange/ExportEntryMarks.h"
#include "core/support/Version.h"

#include <charconv>
#include <cmath>
#include <ostream>
#include <stdexcept>
#include <vector>

namespace brimvale {
namespace {

constexpr std::size_t kFlushThreshold = 256 * 1024;

// The reasons ncdu knows; any other is written as "pattern", which it reads as "excluded".
std::string_view knownExcludedReason(std::string_view reason) {
    for (const std::string_view known : {"pattern", "otherfs", "kernfs", "frmlnk"}) {
        if (reason == known) {
            return known;
        }
    }
    return "pattern";
}

} // namespace

NcduExportWriter::NcduExportWriter(std::ostream& out)
    : out_(out) {
    buffer_.reserve(kFlushThreshold + 8192);
}

void NcduExportWriter::write(const FileNode& root, std::string_view rootName, Date exportDate) {
    buffer_.append("[1,2,{\"progname\":\"brimvale\",\"progver\":");
    appendName(kVersion);
    buffer_.append(",\"timestamp\":");
    appendNumber(static_cast<std::int64_t>(std::floor(exportDate.unixSeconds())));
    buffer_.append("},\n[");
    appendEntry(root, rootName);

    struct Pending {
        const FileNode* folder;
        std::size_t next;
    };
    std::vector<Pending> stack{{&root, 0}};
    while (!stack.empty()) {
        Pending& pending = stack.back();
        const auto& children = pending.folder->children();
        if (pending.next == children.size()) {
            buffer_.push_back(']');
            stack.pop_back();
            continue;
        }
        const FileNode& child = *children[pending.next++];
        buffer_.append(",\n");
        if (child.isDirectory()) {
            buffer_.push_back('[');
            appendEntry(child, child.name());
            stack.push_back({&child, 0});
        } else {
            appendEntry(child, child.name());
        }
        flushIfFull();
    }
    buffer_.append("]\n");
    flush();
}

void NcduExportWriter::appendEntry(const FileNode& node, std::string_view name) {
    std::int64_t ownBytes = node.size();
    if (node.isDirectory()) {
        for (const auto& child : node.children()) {
            ownBytes -= child->size();
        }
        ownBytes = std::max<std::int64_t>(ownBytes, 0);
    }
    buffer_.append("{\"name\":");
    appendName(name);
    if (ownBytes > 0) {
        buffer_.append(",\"asize\":");
        appendNumber(ownBytes);
        buffer_.append(",\"dsize\":");
        appendNumber(ownBytes);
    }
    if (const auto modified = node.modifiedDate(); modified && modified->unixSeconds() >= 0) {
        buffer_.append(",\"mtime\":");
        appendNumber(static_cast<std::int64_t>(std::floor(modified->unixSeconds())));
    }
    if (const auto type = node.mimeType()) {
        if (*type == kReadErrorMimeType) {
            buffer_.append(",\"read_error\":true");
        } else if (*type == kSpecialFileMimeType) {
            buffer_.append(",\"notreg\":true");
        } else if (const auto reason = excludedReason(*type)) {
            buffer_.append(",\"excluded\":\"");
            buffer_.append(knownExcludedReason(*reason));
            buffer_.push_back('"');
        }
    }
    buffer_.push_back('}');
}

void NcduExportWriter::appendName(std::string_view name) {
    static constexpr char kHex[] = "0123456789abcdef";
    buffer_.push_back('"');
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            buffer_.push_back('\\');
            buffer_.push_back(c);
        } else if (byte < 0x20) {
            buffer_.append("\\u00");
            buffer_.push_back(kHex[byte >> 4]);
            buffer_.push_back(kHex[byte & 0xF]);
        } else {
            buffer_.push_back(c);
        }
    }
    buffer_.push_back('"');
}

void NcduExportWriter::appendNumber(std::int64_t value) {
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    buffer_.append(digits, result.ptr);
}

void NcduExportWriter::flushIfFull() {
    if (buffer_.size() >= kFlushThreshold) {
        flush();
    }
}

void NcduExportWriter::flush() {
    out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    buffer_.clear();
    if (!out_) {
        throw std::runtime_error("the export could not be written");
    }
}

} // namespace brimvale
