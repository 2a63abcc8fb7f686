#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// A pull reader of JSON text that arrives in pieces: the caller asks for the next token it
// expects, so a document of any size is read through one fixed buffer. Every failure throws
// CorruptDataError naming what was expected and the byte offset in the text where it failed.
//
// Lenient on purpose where exporters are: bytes of a string are taken as they are, so names
// written as raw bytes that are not valid UTF-8 come through unchanged. Escapes are decoded;
// a lone "\udc80"–"\udcff" is the byte it stands for (see ByteNames.h), any other lone UTF-16
// surrogate becomes U+FFFD.
// Thread safety: one reader per thread.
class JsonPullReader {
public:
    // Fills up to `capacity` bytes and returns how many it gave; 0 means the text has ended.
    // May throw; the exception goes to the caller of the reading method.
    using Fill = std::function<std::size_t(char* buffer, std::size_t capacity)>;

    struct Number {
        bool integral = false; // no fraction and no exponent
        bool negative = false;
        bool fitsUnsigned = true; // the magnitude of an integral number fits 64 bits
        std::uint64_t magnitude = 0;
        double value = 0;
    };

    explicit JsonPullReader(Fill fill, std::size_t bufferSize = 256 * 1024);

    // The next byte that is not white space, without taking it; '\0' at the end of the text.
    char peek();
    bool atEnd();
    // Takes the next significant byte, which must be `expected`; `context` says what it belongs
    // to ("the export", "a folder").
    void expect(char expected, std::string_view context);
    // Takes "," or `closing`; returns false on `closing`.
    bool nextOrClose(char closing, std::string_view context);

    void readString(std::string& out);
    Number readNumber();
    bool readBool();
    // Skips one value of any kind, however deeply nested, without recursion.
    void skipValue();

    std::uint64_t offset() const { return consumedBefore_ + position_; }
    [[noreturn]] void fail(std::string_view what) const;
    [[noreturn]] void failAt(std::uint64_t offset, std::string_view what) const;

private:
    static constexpr std::size_t kLongestNumber = 400;

    bool refill();
    bool ensureAvailable(std::size_t count);
    char take();
    void skipWhitespace();
    void readLiteral(std::string_view rest);
    std::uint32_t readHexQuad();
    void appendEscape(std::string& out);

    Fill fill_;
    std::vector<char> buffer_;
    std::size_t position_ = 0;
    std::size_t end_ = 0;
    std::uint64_t consumedBefore_ = 0; // bytes of the text before buffer_[0]
    bool ended_ = false;
};

} // namespace brimvale
