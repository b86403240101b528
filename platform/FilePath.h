#pragma once

#include <string>
#include <string_view>

namespace qelmo {

/// Joins `folder` and `component` as text with one "/". Nothing is resolved, so the result is below `folder`
/// even if the component is absolute or empty. Paths are bytes and are decoded only for display.
[[nodiscard]] std::string joinedPath(std::string_view folder, std::string_view component);

/// The path up to, but not including, its last "/" ("/" for an entry of the root folder, "." for a bare
/// name).
[[nodiscard]] std::string parentFolder(std::string_view path);

/// True if `path` contains a NUL. The system would cut the path off there, so it cannot be used.
[[nodiscard]] bool holdsNul(std::string_view path) noexcept;

/// The user's home folder: HOME if it is an absolute path, otherwise the home folder in the user database,
/// otherwise "".
[[nodiscard]] std::string currentHomeFolder();

/// The bundle that contains the executable: X for an executable in X/Contents/MacOS, otherwise the folder of
/// the executable.
[[nodiscard]] std::string bundleOfExecutable(std::string_view executablePath);

/// The resource folder of the bundle with this root folder.
[[nodiscard]] std::string resourceFolder(std::string_view bundleURL);

}  // namespace qelmo
