#pragma once

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

} // namespace brimvale
