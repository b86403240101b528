#pragma once

#include <optional>
#include <string>

namespace qelmo {

/// Makes the ICNS file at `path` the application's icon. Without a path, and with a file that cannot be read,
/// it is the one that is built into the program; nothing is reported. Under Wayland a desktop shows the icon
/// of the package's desktop entry instead; call this before the first window is made. On macOS it does
/// nothing: there the bundle's icon is the application's.
void setApplicationIcon(const std::optional<std::string>& path);

/// Whether the system has an icon to show for the application.
[[nodiscard]] bool hasApplicationIcon();

}  // namespace qelmo
