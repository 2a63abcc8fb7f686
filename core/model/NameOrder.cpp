#include "core/model/NameOrder.h"

#include <QChar>
#include <QString>

#include <cstdint>

namespace brimvale {
namespace {

constexpr char32_t kInvalidByteBase = 0x110000; // above every code point

bool isAsciiDigit(char32_t c) {
    return c >= '0' && c <= '9';
}

// Reads one code point at `position`, advancing it. An invalid byte reads as one unit above
// every code point, so such names still order consistently.
char32_t readCodePoint(std::string_view text, std::size_t& position) {
    const auto lead = static_cast<unsigned char>(text[position]);
    if (lead < 0x80) {
        ++position;
        return lead;
    }
    int length = 0;
    char32_t value = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2;
        value = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        value = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        value = lead & 0x07;
    }
    if (length == 0 || position + static_cast<std::size_t>(length) > text.size()) {
        ++position;
        return kInvalidByteBase + lead;
    }
    for (int i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[position + static_cast<std::size_t>(i)]);
        if ((next & 0xC0) != 0x80) {
            ++position;
            return kInvalidByteBase + lead;
        }
        value = value << 6 | (next & 0x3F);
    }
    static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < kSmallest[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        ++position;
        return kInvalidByteBase + lead;
    }
    position += static_cast<std::size_t>(length);
    return value;
}

char32_t foldCase(char32_t c) {
    if (c < 0x80) {
        return (c >= 'A' && c <= 'Z') ? c + ('a' - 'A') : c;
    }
    if (c >= kInvalidByteBase) {
        return c;
    }
    return QChar::toCaseFolded(static_cast<char32_t>(c));
}

// The letter a character ranks with: its case folded, accents removed (the first character of
// its canonical decomposition, repeatedly).
char32_t primaryKey(char32_t c) {
    c = foldCase(c);
    for (int depth = 0; c >= 0xC0 && c < kInvalidByteBase && depth < 4; ++depth) {
        if (QChar::decompositionTag(c) != QChar::Canonical) {
            break;
        }
        const QString parts = QChar::decomposition(c);
        if (parts.isEmpty()) {
            break;
        }
        const char32_t base = parts.at(0).isHighSurrogate() && parts.size() > 1
                                  ? QChar::surrogateToUcs4(parts.at(0), parts.at(1))
                                  : parts.at(0).unicode();
        c = foldCase(base);
    }
    return c;
}

enum class Strength { primary, folded };

// Compares two digit runs by numeric value (leading zeros ignored).
int compareDigitRuns(std::string_view a, std::size_t& i, std::string_view b, std::size_t& j) {
    while (i < a.size() && a[i] == '0' && i + 1 < a.size() &&
           isAsciiDigit(static_cast<unsigned char>(a[i + 1]))) {
        ++i;
    }
    while (j < b.size() && b[j] == '0' && j + 1 < b.size() &&
           isAsciiDigit(static_cast<unsigned char>(b[j + 1]))) {
        ++j;
    }
    const std::size_t startA = i;
    const std::size_t startB = j;
    while (i < a.size() && isAsciiDigit(static_cast<unsigned char>(a[i]))) {
        ++i;
    }
    while (j < b.size() && isAsciiDigit(static_cast<unsigned char>(b[j]))) {
        ++j;
    }
    const std::size_t lengthA = i - startA;
    const std::size_t lengthB = j - startB;
    if (lengthA != lengthB) {
        return lengthA < lengthB ? -1 : 1;
    }
    const int order = a.substr(startA, lengthA).compare(b.substr(startB, lengthB));
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

int compareAt(std::string_view a, std::string_view b, Strength strength) {
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() && j < b.size()) {
        const auto byteA = static_cast<unsigned char>(a[i]);
        const auto byteB = static_cast<unsigned char>(b[j]);
        if (isAsciiDigit(byteA) && isAsciiDigit(byteB)) {
            if (const int order = compareDigitRuns(a, i, b, j)) {
                return order;
            }
            continue;
        }
        char32_t charA = readCodePoint(a, i);
        char32_t charB = readCodePoint(b, j);
        if (strength == Strength::primary) {
            charA = primaryKey(charA);
            charB = primaryKey(charB);
        } else {
            charA = foldCase(charA);
            charB = foldCase(charB);
        }
        if (charA != charB) {
            return charA < charB ? -1 : 1;
        }
    }
    if (i < a.size()) {
        return 1;
    }
    if (j < b.size()) {
        return -1;
    }
    return 0;
}

bool isAscii(std::string_view text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            return false;
        }
    }
    return true;
}

} // namespace

int compareNamesForFileManager(std::string_view a, std::string_view b) {
    if (isAscii(a) && isAscii(b)) {
        // Without accents the primary and folded strengths agree.
        return compareAt(a, b, Strength::folded);
    }
    if (const int order = compareAt(a, b, Strength::primary)) {
        return order;
    }
    return compareAt(a, b, Strength::folded);
}

} // namespace brimvale
