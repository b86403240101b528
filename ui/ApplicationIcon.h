#pragma once

#include <string>

namespace qelmo {

/// Gives the application the icon that is built into the program.
void setFallbackApplicationIcon();

/// Makes the picture file at `path` the application's icon. A file that cannot be read changes nothing and is
/// not reported.
void setApplicationIcon(const std::string& path);

}  // namespace qelmo
