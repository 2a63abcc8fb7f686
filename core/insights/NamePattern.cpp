#include "core/insights/NamePattern.h"

namespace brimvale {
namespace {

// Matches one "[...]" set at `pattern[p]` (just after "[") against `c`; on return `p` is just
// after the closing "]". A set without its "]" stands for the "[" byte itself.
bool matchesSet(std::string_view pattern, std::size_t& p, char c) {
    const std::size_t open = p;
    bool negated = false;
    if (p < pattern.size() && (pattern[p] == '!' || pattern[p] == '^')) {
        negated = true;
        ++p;
    }
    bool found = false;
    bool first = true;
    while (p < pattern.size() && (pattern[p] != ']' || first)) {
        first = false;
        const char low = pattern[p];
        if (p + 2 < pattern.size() && pattern[p + 1] == '-' && pattern[p + 2] != ']') {
            const char high = pattern[p + 2];
            const auto u = static_cast<unsigned char>(c);
            found = found ||
                    (u >= static_cast<unsigned char>(low) && u <= static_cast<unsigned char>(high));
            p += 3;
        } else {
            found = found || c == low;
            ++p;
        }
    }
    if (p >= pattern.size()) {
        p = open;
        return c == '[';
    }
    ++p;
    return found != negated;
}

// Glob matching with one backtrack point (the last "*"): linear in practice, never
// exponential.
bool globMatches(std::string_view pattern, std::string_view name) {
    std::size_t p = 0;
    std::size_t n = 0;
    std::size_t starPattern = std::string_view::npos;
    std::size_t starName = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            starPattern = ++p;
            starName = n;
            continue;
        }
        if (p < pattern.size()) {
            std::size_t next = p + 1;
            bool ok = false;
            if (pattern[p] == '?') {
                ok = true;
            } else if (pattern[p] == '[') {
                ok = matchesSet(pattern, next, name[n]);
            } else {
                ok = pattern[p] == name[n];
            }
            if (ok) {
                p = next;
                ++n;
                continue;
            }
        }
        if (starPattern == std::string_view::npos) {
            return false;
        }
        p = starPattern;
        n = ++starName;
    }
    while (p < pattern.size() && pattern[p] == '*') {
        ++p;
    }
    return p == pattern.size();
}

} // namespace

NamePattern::NamePattern(std::string_view text) {
    folded_.reserve(text.size());
    for (const char c : text) {
        folded_.push_back(foldByte(c));
        glob_ = glob_ || c == '*' || c == '?' || c == '[';
    }
}

bool NamePattern::matchesFolded(std::string_view foldedName) const {
    if (folded_.empty()) {
        return false;
    }
    return glob_ ? globMatches(folded_, foldedName)
                 : foldedName.find(folded_) != std::string_view::npos;
}

bool NamePattern::matches(std::string_view name) const {
    std::string folded(name);
    for (char& c : folded) {
        c = foldByte(c);
    }
    return matchesFolded(folded);
}

} // namespace brimvale
