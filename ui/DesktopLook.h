#pragma once

#include <optional>
#include <string>

class QApplication;

namespace qelmo {

/// Makes the controls that the toolkit draws belong to a dark window, whatever the desktop's theme. On macOS
/// the native style stays and is only asked for its dark scheme.
void applyDarkControls(QApplication& application);

/// Makes the ICNS file at `path` the application's icon, or, without a file that can be read, the one that is
/// built into the program. Call it before the first window is made. On macOS it does nothing.
void setApplicationIcon(const std::optional<std::string>& path);

/// Whether the system has an icon to show for the application.
[[nodiscard]] bool hasApplicationIcon();

}  // namespace qelmo
