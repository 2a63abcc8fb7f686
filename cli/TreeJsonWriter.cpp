#include "cli/TreeJsonWriter.h"

#include "core/support/ByteNames.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <ostream>
#include <vector>

namespace brimvale::cli {
namespace {

constexpr std::size_t kBufferBytes = 1 << 16;

void appendInteger(std::string& buffer, std::int64_t value) {
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    buffer.append(digits, result.ptr);
}

void appendTwoDigits(std::string& buffer, unsigned value) {
    buffer.push_back(static_cast<char>('0' + value / 10));
    buffer.push_back(static_cast<char>('0' + value % 10));
}

bool needsEscapeOrCheck(unsigned char byte) {
    return byte < 0x20 || byte == '"' || byte == '\\' || byte >= 0x80;
}

} // namespace

void TreeJsonWriter::appendJsonString(std::string& buffer, std::string_view text) {
    buffer.push_back('"');
    std::size_t start = 0;
    std::size_t i = 0;
    while (i < text.size()) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (!needsEscapeOrCheck(byte)) {
            ++i;
            continue;
        }
        if (byte >= 0x80) {
            const std::size_t length = ByteNames::validUtf8SequenceLength(text.substr(i));
            if (length != 0) {
                i += length;
                continue;
            }
        }
        buffer.append(text.substr(start, i - start));
        switch (byte) {
        case '"':
            buffer.append("\\\"");
            break;
        case '\\':
            buffer.append("\\\\");
            break;
        case '\n':
            buffer.append("\\n");
            break;
        case '\r':
            buffer.append("\\r");
            break;
        case '\t':
            buffer.append("\\t");
            break;
        case '\b':
            buffer.append("\\b");
            break;
        case '\f':
            buffer.append("\\f");
            break;
        default: {
            // A control character as \u00XX; a byte outside valid UTF-8 as the lone surrogate
            // \udcXX that stands for it (see ByteNames.h).
            static constexpr char kHex[] = "0123456789abcdef";
            buffer.append(byte < 0x20 ? "\\u00" : "\\udc");
            buffer.push_back(kHex[byte >> 4]);
            buffer.push_back(kHex[byte & 0xF]);
        }
        }
        ++i;
        start = i;
    }
    buffer.append(text.substr(start));
    buffer.push_back('"');
}

void TreeJsonWriter::appendIso8601(std::string& buffer, double unixSeconds) {
    const auto seconds = static_cast<std::int64_t>(std::floor(unixSeconds));
    std::int64_t days = seconds / 86400;
    std::int64_t secondOfDay = seconds % 86400;
    if (secondOfDay < 0) {
        secondOfDay += 86400;
        --days;
    }
    // Days since 1970-01-01 to a civil date (proleptic Gregorian calendar).
    const std::int64_t shifted = days + 719468;
    const std::int64_t era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
    const auto dayOfEra = static_cast<unsigned>(shifted - era * 146097);
    const unsigned yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned monthIndex = (5 * dayOfYear + 2) / 153;
    const unsigned day = dayOfYear - (153 * monthIndex + 2) / 5 + 1;
    const unsigned month = monthIndex < 10 ? monthIndex + 3 : monthIndex - 9;
    const std::int64_t year =
        static_cast<std::int64_t>(yearOfEra) + era * 400 + (month <= 2 ? 1 : 0);

    if (year >= 0 && year < 10000) {
        appendTwoDigits(buffer, static_cast<unsigned>(year / 100));
        appendTwoDigits(buffer, static_cast<unsigned>(year % 100));
    } else {
        appendInteger(buffer, year);
    }
    buffer.push_back('-');
    appendTwoDigits(buffer, month);
    buffer.push_back('-');
    appendTwoDigits(buffer, day);
    buffer.push_back('T');
    appendTwoDigits(buffer, static_cast<unsigned>(secondOfDay / 3600));
    buffer.push_back(':');
    appendTwoDigits(buffer, static_cast<unsigned>(secondOfDay / 60 % 60));
    buffer.push_back(':');
    appendTwoDigits(buffer, static_cast<unsigned>(secondOfDay % 60));
    buffer.push_back('Z');
}

TreeJsonWriter::TreeJsonWriter(std::ostream& out)
    : out_(out) {
    buffer_.reserve(kBufferBytes + 4096);
}

TreeJsonWriter::~TreeJsonWriter() {
    flush();
}

void TreeJsonWriter::flush() {
    if (!buffer_.empty()) {
        out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
        buffer_.clear();
    }
}

void TreeJsonWriter::flushIfFull() {
    if (buffer_.size() >= kBufferBytes) {
        flush();
    }
}

void TreeJsonWriter::appendNodeOpening(const FileNode& node,
                                       const std::vector<SkippedFolder>* unreadableFolders,
                                       bool partial) {
    buffer_.append("{\"name\":");
    appendJsonString(buffer_, node.name());
    buffer_.append(",\"path\":");
    appendJsonString(buffer_, node.path());
    buffer_.append(node.isDirectory() ? ",\"isDirectory\":true,\"size\":"
                                      : ",\"isDirectory\":false,\"size\":");
    appendInteger(buffer_, node.size());
    buffer_.append(",\"modifiedDate\":");
    const auto date = node.modifiedDate();
    if (date && std::isfinite(date->unixSeconds()) && std::abs(date->unixSeconds()) < 1e15) {
        buffer_.push_back('"');
        appendIso8601(buffer_, date->unixSeconds());
        buffer_.push_back('"');
    } else {
        buffer_.append("null");
    }
    buffer_.append(",\"providerID\":");
    if (const auto providerID = node.providerID()) {
        appendJsonString(buffer_, *providerID);
    } else {
        buffer_.append("null");
    }
    buffer_.append(",\"mimeType\":");
    if (const auto mimeType = node.mimeType()) {
        appendJsonString(buffer_, *mimeType);
    } else {
        buffer_.append("null");
    }
    if (unreadableFolders != nullptr) {
        buffer_.append(partial ? ",\"partial\":true" : ",\"partial\":false");
        buffer_.append(",\"unreadableFolders\":[");
        bool first = true;
        for (const auto& folder : *unreadableFolders) {
            buffer_.append(first ? "{\"path\":" : ",{\"path\":");
            first = false;
            appendJsonString(buffer_, folder.location);
            buffer_.append(",\"reason\":");
            appendJsonString(buffer_, folder.reason);
            buffer_.push_back('}');
        }
        buffer_.push_back(']');
    }
    buffer_.append(",\"children\":[");
}

void TreeJsonWriter::write(const FileNode& root) {
    write(root, nullptr, false);
}

void TreeJsonWriter::write(const FileNode& root,
                           const std::vector<SkippedFolder>& unreadableFolders, bool partial) {
    write(root, &unreadableFolders, partial);
}

void TreeJsonWriter::write(const FileNode& root,
                           const std::vector<SkippedFolder>* unreadableFolders, bool partial) {
    struct Frame {
        const FileNode* node;
        std::size_t nextChild;
    };
    std::vector<Frame> stack;
    appendNodeOpening(root, unreadableFolders, partial);
    stack.push_back({&root, 0});
    while (!stack.empty()) {
        Frame& frame = stack.back();
        const auto& children = frame.node->children();
        if (frame.nextChild == children.size()) {
            buffer_.append("]}");
            stack.pop_back();
            continue;
        }
        if (frame.nextChild > 0) {
            buffer_.push_back(',');
        }
        const FileNode& child = *children[frame.nextChild++];
        appendNodeOpening(child);
        stack.push_back({&child, 0});
        flushIfFull();
    }
    buffer_.push_back('\n');
    flush();
}

} // namespace brimvale::cli
