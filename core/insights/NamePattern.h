#pragma once

#include <string>
#include <string_view>

namespace brimvale {

// What a search looks for in names. Text with "*", "?" or "[" is a glob matched against the
// whole name ("*" any run of bytes, "?" one byte, "[a-z]" and "[!0-9]" one byte of a set);
// anything else is a substring. Both ignore the case of ASCII letters; other bytes must be
// equal (names need not be UTF-8). An empty pattern matches nothing.
class NamePattern {
public:
    explicit NamePattern(std::string_view text);

    bool isGlob() const { return glob_; }
    bool isEmpty() const { return folded_.empty(); }
    // The pattern with ASCII letters in lower case: the substring searched for, or the glob.
    const std::string& folded() const { return folded_; }

    bool matches(std::string_view name) const;
    // As matches, for a name already folded to lower case.
    bool matchesFolded(std::string_view foldedName) const;

    static char foldByte(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

private:
    std::string folded_;
    bool glob_ = false;
};

} // namespace brimvale
