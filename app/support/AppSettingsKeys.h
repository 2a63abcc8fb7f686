#pragma once

#include <string_view>

namespace brimvale::AppSettingsKeys {

// Keys the desktop application keeps in the user's settings store beside the core's
// (SettingsKeys.h), in the same file.

// Text: the main window's geometry (QWidget::saveGeometry, base64).
inline constexpr std::string_view mainWindowGeometry = "Brimvale.mainWindowGeometry.v1";
// Text: the sidebar's width in device-independent pixels, in decimal.
inline constexpr std::string_view sidebarWidth = "Brimvale.sidebarWidth.v1";

} // namespace brimvale::AppSettingsKeys
