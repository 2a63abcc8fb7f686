#include "core/rclone/FlatEntryReader.h"

#include <cstdint>
#include <limits>
#include <string>

namespace brimvale {
namespace {

class Reader {
public:
    explicit Reader(std::string_view text)
        : text_(text) {}

    bool atEnd() {
        skipSpace();
        return at_ == text_.size();
    }
    bool take(char expected) {
        skipSpace();
        if (at_ < text_.size() && text_[at_] == expected) {
            ++at_;
            return true;
        }
        return false;
    }
    char peek() {
        skipSpace();
        return at_ < text_.size() ? text_[at_] : '\0';
    }

    // A JSON string (after skipping space), unescaped; its UTF-8 checked.
    bool readString(std::string& out) {
        if (!take('"')) {
            return false;
        }
        out.clear();
        for (;;) {
            const std::size_t start = at_;
            while (at_ < text_.size() && text_[at_] != '"' && text_[at_] != '\\' &&
                   static_cast<unsigned char>(text_[at_]) >= 0x20) {
                ++at_;
            }
            out.append(text_.substr(start, at_ - start));
            if (at_ == text_.size() || static_cast<unsigned char>(text_[at_]) < 0x20) {
                return false;
            }
            if (text_[at_++] == '"') {
                return validUtf8(out);
            }
            if (at_ == text_.size()) {
                return false;
            }
            switch (text_[at_++]) {
            case '"':
                out.push_back('"');
                break;
            case '\\':
                out.push_back('\\');
                break;
            case '/':
                out.push_back('/');
                break;
            case 'b':
                out.push_back('\b');
                break;
            case 'f':
                out.push_back('\f');
                break;
            case 'n':
                out.push_back('\n');
                break;
            case 'r':
                out.push_back('\r');
                break;
            case 't':
                out.push_back('\t');
                break;
            case 'u':
                if (!readUnicodeEscape(out)) {
                    return false;
                }
                break;
            default:
                return false;
            }
        }
    }

    bool readWholeNumber(std::int64_t& out) {
        skipSpace();
        const bool negative = at_ < text_.size() && text_[at_] == '-';
        if (negative) {
            ++at_;
        }
        const std::size_t start = at_;
        std::uint64_t magnitude = 0;
        while (at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9') {
            const auto digit = static_cast<std::uint64_t>(text_[at_] - '0');
            if (magnitude > (std::numeric_limits<std::uint64_t>::max() - digit) / 10) {
                return false;
            }
            magnitude = magnitude * 10 + digit;
            ++at_;
        }
        const std::size_t digits = at_ - start;
        if (digits == 0 || (digits > 1 && text_[start] == '0')) {
            return false;
        }
        if (at_ < text_.size() && (text_[at_] == '.' || text_[at_] == 'e' || text_[at_] == 'E')) {
            return false; // the general decoder knows which of these are whole
        }
        constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
        if (negative) {
            if (magnitude > kMax + 1) {
                return false;
            }
            out = magnitude == kMax + 1 ? std::numeric_limits<std::int64_t>::min()
                                        : -static_cast<std::int64_t>(magnitude);
        } else {
            if (magnitude > kMax) {
                return false;
            }
            out = static_cast<std::int64_t>(magnitude);
        }
        return true;
    }

    bool readWord(std::string_view word) {
        skipSpace();
        if (text_.substr(at_, word.size()) != word) {
            return false;
        }
        at_ += word.size();
        return true;
    }

private:
    void skipSpace() {
        while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t' ||
                                      text_[at_] == '\n' || text_[at_] == '\r')) {
            ++at_;
        }
    }

    bool readHex4(unsigned& value) {
        if (text_.size() - at_ < 4) {
            return false;
        }
        value = 0;
        for (int i = 0; i < 4; ++i) {
            const char c = text_[at_++];
            value <<= 4;
            if (c >= '0' && c <= '9') {
                value |= static_cast<unsigned>(c - '0');
            } else if (c >= 'a' && c <= 'f') {
                value |= static_cast<unsigned>(c - 'a' + 10);
            } else if (c >= 'A' && c <= 'F') {
                value |= static_cast<unsigned>(c - 'A' + 10);
            } else {
                return false;
            }
        }
        return true;
    }

    bool readUnicodeEscape(std::string& out) {
        unsigned code = 0;
        if (!readHex4(code)) {
            return false;
        }
        if (code >= 0xDC00 && code <= 0xDFFF) {
            return false;
        }
        if (code >= 0xD800 && code <= 0xDBFF) {
            unsigned low = 0;
            if (text_.substr(at_, 2) != "\\u") {
                return false;
            }
            at_ += 2;
            if (!readHex4(low) || low < 0xDC00 || low > 0xDFFF) {
                return false;
            }
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
        }
        if (code < 0x80) {
            out.push_back(static_cast<char>(code));
        } else if (code < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (code >> 6)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else if (code < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (code >> 12)));
            out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (code >> 18)));
            out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        }
        return true;
    }

    // Well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
    static bool validUtf8(std::string_view text) {
        std::size_t i = 0;
        while (i < text.size()) {
            const auto byte = static_cast<unsigned char>(text[i]);
            if (byte < 0x80) {
                ++i;
                continue;
            }
            int length = 0;
            unsigned low = 0x80;
            unsigned high = 0xBF;
            if (byte >= 0xC2 && byte <= 0xDF) {
                length = 2;
            } else if (byte >= 0xE0 && byte <= 0xEF) {
                length = 3;
                low = byte == 0xE0 ? 0xA0 : 0x80;
                high = byte == 0xED ? 0x9F : 0xBF;
            } else if (byte >= 0xF0 && byte <= 0xF4) {
                length = 4;
                low = byte == 0xF0 ? 0x90 : 0x80;
                high = byte == 0xF4 ? 0x8F : 0xBF;
            } else {
                return false;
            }
            if (i + static_cast<std::size_t>(length) > text.size()) {
                return false;
            }
            for (int k = 1; k < length; ++k) {
                const auto next = static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]);
                if (next < (k == 1 ? low : 0x80) || next > (k == 1 ? high : 0xBF)) {
                    return false;
                }
            }
            i += static_cast<std::size_t>(length);
        }
        return true;
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

} // namespace

std::optional<RcloneEntry> readFlatEntry(std::string_view line) {
    Reader reader(line);
    if (!reader.take('{')) {
        return std::nullopt;
    }
    RcloneEntry entry;
    bool hasPath = false;
    bool hasName = false;
    bool hasSize = false;
    bool hasIsDir = false;
    std::string key;
    std::string text;
    if (!reader.take('}')) {
        do {
            if (!reader.readString(key) || !reader.take(':')) {
                return std::nullopt;
            }
            const char next = reader.peek();
            // Optional keys given as null are absent; required ones are the general decoder's
            // to explain.
            if (next == 'n') {
                if (!reader.readWord("null") || key == "Path" || key == "Name" || key == "Size" ||
                    key == "IsDir") {
                    return std::nullopt;
                }
                if (key == "ModTime") {
                    entry.modTime.reset();
                } else if (key == "ID") {
                    entry.id.reset();
                } else if (key == "MimeType") {
                    entry.mimeType.reset();
                }
                continue;
            }
            if (key == "Path" || key == "Name" || key == "ModTime" || key == "ID" ||
                key == "MimeType") {
                if (next != '"' || !reader.readString(text)) {
                    return std::nullopt;
                }
                if (key == "Path") {
                    entry.path = std::move(text);
                    hasPath = true;
                } else if (key == "Name") {
                    entry.name = std::move(text);
                    hasName = true;
                } else if (key == "ModTime") {
                    entry.modTime = std::move(text);
                } else if (key == "ID") {
                    entry.id = std::move(text);
                } else {
                    entry.mimeType = std::move(text);
                }
            } else if (key == "Size") {
                if (!reader.readWholeNumber(entry.rawSize)) {
                    return std::nullopt;
                }
                hasSize = true;
            } else if (key == "IsDir") {
                if (reader.readWord("true")) {
                    entry.isDir = true;
                } else if (reader.readWord("false")) {
                    entry.isDir = false;
                } else {
                    return std::nullopt;
                }
                hasIsDir = true;
            } else if (next == '"') {
                if (!reader.readString(text)) {
                    return std::nullopt;
                }
            } else if (next == 't' || next == 'f') {
                if (!reader.readWord("true") && !reader.readWord("false")) {
                    return std::nullopt;
                }
            } else {
                std::int64_t ignored = 0;
                if (!reader.readWholeNumber(ignored)) {
                    return std::nullopt;
                }
            }
        } while (reader.take(','));
        if (!reader.take('}')) {
            return std::nullopt;
        }
    }
    if (!reader.atEnd() || !hasPath || !hasName || !hasSize || !hasIsDir) {
        return std::nullopt;
    }
    return entry;
}

} // namespace brimvale
