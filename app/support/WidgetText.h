#pragma once

#include "core/support/ByteNames.h"

#include <QString>

#include <string>
#include <string_view>

namespace brimvale {

// Core texts are UTF-8; Qt's are UTF-16.
inline QString qtText(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

inline std::string stdText(const QString& text) {
    return text.toStdString();
}

// A file path's bytes as a QString that keeps them (bytes outside valid UTF-8 as the lone
// surrogates of ByteNames.h; shown as U+FFFD), and back. For paths that travel through Qt
// before reaching a file; for a path Qt made itself (a file dialog's), the bytes of its text.
inline QString qtPathText(std::string_view bytes) {
    const std::u16string text = ByteNames::decodeFileNameBytes(bytes);
    return QString(reinterpret_cast<const QChar*>(text.data()),
                   static_cast<qsizetype>(text.size()));
}

inline std::string pathBytes(const QString& text) {
    return ByteNames::encodeFileNameBytes(
        {reinterpret_cast<const char16_t*>(text.utf16()), static_cast<std::size_t>(text.size())});
}

} // namespace brimvale
