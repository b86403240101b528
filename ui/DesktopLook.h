#pragma once

#include <optional>
#include <string>

class QApplication;

namespace qelmo {

/// Gives all controls a dark look, whatever the theme of the desktop. On macOS the native style stays, and
/// only its dark scheme is requested.
void applyDarkControls(QApplication& application);

/// Sets the icon of the application: the ICNS file at `path`, or the built-in icon if that file cannot be
/// read. Call it before the first window is created. Does nothing on macOS.
void setApplicationIcon(const std::optional<std::string>& path);

/// Whether the application has an icon.
[[nodiscard]] bool hasApplicationIcon();

}  // namespace qelmo
