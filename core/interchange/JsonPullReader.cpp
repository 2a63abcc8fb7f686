#include "core/interchange/JsonPullReader.h"

#include "core/rclone/Utf8Text.h"
#include "core/support/ByteNames.h"
#include "core/support/CorruptDataError.h"

#include <cmath>
#include <cstring>

namespace brimvale {
namespace {

bool isWhitespace(char c) {
    return c == ' ' || c == '\n' || c == '\r' || c == '\t';
}

void appendUtf8(std::string& out, std::uint32_t codePoint) {
    out += Utf8Text::encodeCodePoint(static_cast<char32_t>(codePoint));
}

} // namespace

JsonPullReader::JsonPullReader(Fill fill, std::size_t bufferSize)
    : fill_(std::move(fill))
    , buffer_(bufferSize < 16 ? 16 : bufferSize) {}

bool JsonPullReader::refill() {
    if (ended_) {
        return false;
    }
    consumedBefore_ += end_;
    position_ = 0;
    end_ = fill_(buffer_.data(), buffer_.size());
    if (end_ == 0) {
        ended_ = true;
        return false;
    }
    return true;
}

bool JsonPullReader::ensureAvailable(std::size_t count) {
    if (end_ - position_ >= count) {
        return true;
    }
    // Keeps the unread tail and appends to it.
    consumedBefore_ += position_;
    std::memmove(buffer_.data(), buffer_.data() + position_, end_ - position_);
    end_ -= position_;
    position_ = 0;
    while (!ended_ && end_ < count) {
        const std::size_t filled = fill_(buffer_.data() + end_, buffer_.size() - end_);
        if (filled == 0) {
            ended_ = true;
        }
        end_ += filled;
    }
    return end_ >= count;
}

char JsonPullReader::take() {
    if (position_ == end_ && !refill()) {
        fail("the text ends too early");
    }
    return buffer_[position_++];
}

void JsonPullReader::skipWhitespace() {
    for (;;) {
        while (position_ < end_ && isWhitespace(buffer_[position_])) {
            ++position_;
        }
        if (position_ < end_ || !refill()) {
            return;
        }
    }
}

char JsonPullReader::peek() {
    skipWhitespace();
    return position_ < end_ ? buffer_[position_] : '\0';
}

bool JsonPullReader::atEnd() {
    skipWhitespace();
    return position_ == end_;
}

void JsonPullReader::fail(std::string_view what) const {
    failAt(offset(), what);
}

void JsonPullReader::failAt(std::uint64_t at, std::string_view what) const {
    throw CorruptDataError(std::string(what) + " at byte " + std::to_string(at));
}

void JsonPullReader::expect(char expected, std::string_view context) {
    const char found = peek();
    if (found != expected) {
        std::string message = "expected '";
        message += expected;
        message += "' in ";
        message += context;
        message += found == '\0' && atEnd() ? ", but the text ends" : "";
        fail(message);
    }
    ++position_;
}

bool JsonPullReader::nextOrClose(char closing, std::string_view context) {
    const char found = peek();
    if (found == ',') {
        ++position_;
        return true;
    }
    if (found == closing) {
        ++position_;
        return false;
    }
    std::string message = "expected ',' or '";
    message += closing;
    message += "' in ";
    message += context;
    message += found == '\0' && atEnd() ? ", but the text ends" : "";
    fail(message);
}

void JsonPullReader::readString(std::string& out) {
    out.clear();
    if (peek() != '"') {
        fail("expected a string");
    }
    ++position_;
    for (;;) {
        // Copies runs of plain bytes at once; names are most of an export.
        const std::size_t start = position_;
        while (position_ < end_ && buffer_[position_] != '"' && buffer_[position_] != '\\') {
            ++position_;
        }
        out.append(buffer_.data() + start, position_ - start);
        if (position_ == end_) {
            if (!refill()) {
                fail("the text ends inside a string");
            }
            continue;
        }
        if (buffer_[position_++] == '"') {
            return;
        }
        appendEscape(out);
    }
}

std::uint32_t JsonPullReader::readHexQuad() {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        const char c = take();
        value <<= 4;
        if (c >= '0' && c <= '9') {
            value |= static_cast<std::uint32_t>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            value |= static_cast<std::uint32_t>(c - 'a' + 10);
        } else if (c >= 'A' && c <= 'F') {
            value |= static_cast<std::uint32_t>(c - 'A' + 10);
        } else {
            fail("expected four hexadecimal digits after \\u");
        }
    }
    return value;
}

void JsonPullReader::appendEscape(std::string& out) {
    const char c = take();
    switch (c) {
    case '"':
        out.push_back('"');
        return;
    case '\\':
        out.push_back('\\');
        return;
    case '/':
        out.push_back('/');
        return;
    case 'b':
        out.push_back('\b');
        return;
    case 'f':
        out.push_back('\f');
        return;
    case 'n':
        out.push_back('\n');
        return;
    case 'r':
        out.push_back('\r');
        return;
    case 't':
        out.push_back('\t');
        return;
    case 'u':
        break;
    default:
        fail("unknown escape in a string");
    }
    std::uint32_t unit = readHexQuad();
    for (;;) {
        if (unit < 0xD800 || unit >= 0xE000) {
            appendUtf8(out, unit);
            return;
        }
        // A high surrogate counts only with a low one right after it. A lone one is U+FFFD,
        // except U+DC80–U+DCFF: the byte a name that is not UTF-8 had there (ByteNames.h).
        if (unit >= 0xDC00 || !ensureAvailable(2) || buffer_[position_] != '\\' ||
            buffer_[position_ + 1] != 'u') {
            ByteNames::appendCodePointAsNameBytes(unit, out);
            return;
        }
        position_ += 2;
        const std::uint32_t low = readHexQuad();
        if (low >= 0xDC00 && low < 0xE000) {
            appendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
            return;
        }
        ByteNames::appendCodePointAsNameBytes(unit, out);
        unit = low;
    }
}

JsonPullReader::Number JsonPullReader::readNumber() {
    const std::uint64_t start = offset();
    Number number;
    // The number's own bytes, for the rare one that is not a whole number.
    char text[kLongestNumber + 1];
    std::size_t length = 0;
    if (peek() == '-') {
        number.negative = true;
        text[length++] = take();
    }
    bool anyDigit = false;
    number.integral = true;
    for (;;) {
        if (position_ == end_ && !refill()) {
            break;
        }
        const char c = buffer_[position_];
        if (c >= '0' && c <= '9') {
            if (number.integral) {
                const auto digit = static_cast<std::uint64_t>(c - '0');
                if (number.magnitude > (UINT64_MAX - digit) / 10) {
                    number.fitsUnsigned = false;
                } else {
                    number.magnitude = number.magnitude * 10 + digit;
                }
            }
            anyDigit = true;
        } else if (c == '.' || c == 'e' || c == 'E' || ((c == '+' || c == '-') && anyDigit)) {
            number.integral = false;
        } else {
            break;
        }
        if (length == kLongestNumber) {
            failAt(start, "a number is too long");
        }
        text[length++] = c;
        ++position_;
    }
    if (!anyDigit) {
        failAt(start, "expected a value");
    }
    if (number.integral) {
        number.value = static_cast<double>(number.magnitude) * (number.negative ? -1.0 : 1.0);
    } else {
        text[length] = '\0';
        char* parsedEnd = nullptr;
        number.value = std::strtod(text, &parsedEnd);
        if (parsedEnd != text + length || !std::isfinite(number.value)) {
            failAt(start, "a number is not valid");
        }
    }
    return number;
}

void JsonPullReader::readLiteral(std::string_view rest) {
    for (const char expected : rest) {
        if (take() != expected) {
            fail("expected true, false or null");
        }
    }
}

bool JsonPullReader::readBool() {
    const char c = peek();
    if (c == 't') {
        ++position_;
        readLiteral("rue");
        return true;
    }
    if (c == 'f') {
        ++position_;
        readLiteral("alse");
        return false;
    }
    fail("expected true or false");
}

void JsonPullReader::skipValue() {
    // Each open container remembers only its closing byte and whether a member is due.
    std::vector<char> closings;
    std::string scratch;
    for (;;) {
        const char c = peek();
        if (c == '{' || c == '[') {
            ++position_;
            const char closing = c == '{' ? '}' : ']';
            if (peek() == closing) {
                ++position_;
            } else {
                closings.push_back(closing);
                if (closing == '}') {
                    readString(scratch);
                    expect(':', "an object");
                }
                continue;
            }
        } else if (c == '"') {
            readString(scratch);
        } else if (c == 't' || c == 'f') {
            readBool();
        } else if (c == 'n') {
            ++position_;
            readLiteral("ull");
        } else if (c == '-' || (c >= '0' && c <= '9')) {
            readNumber();
        } else if (c == '\0' && atEnd()) {
            fail("the text ends inside a value");
        } else {
            fail("expected a value");
        }
        // A value is complete: close every container that ends here.
        for (;;) {
            if (closings.empty()) {
                return;
            }
            const char closing = closings.back();
            if (nextOrClose(closing, closing == '}' ? "an object" : "an array")) {
                if (closing == '}') {
                    readString(scratch);
                    expect(':', "an object");
                }
                break;
            }
            closings.pop_back();
        }
    }
}

} // namespace brimvale
