#pragma once

#include <string>
#include <string_view>

namespace qelmo {

/// Joins as text with one "/": nothing is resolved, so an absolute or empty component stays below `folder`.
/// Paths are bytes; they are decoded only where they are shown.
[[nodiscard]] std::string joinedPath(std::string_view folder, std::string_view component);

/// The path up to its last "/", without it ("/" for an entry of the root folder, "." for a bare name).
[[nodiscard]] std::string parentFolder(std::string_view path);

/// True when the system would cut `path` short, so that it cannot be used.
[[nodiscard]] bool holdsNul(std::string_view path) noexcept;

/// The user's home folder: HOME when it is an absolute path, else the user database's entry, else "".
[[nodiscard]] std::string currentHomeFolder();

/// The bundle to which the executable at `executablePath` belongs: inside X/Contents/MacOS/ it is X, anywhere
/// else the executable's own folder.
[[nodiscard]] std::string bundleOfExecutable(std::string_view executablePath);

/// The folder for resources below a bundle's root folder.
[[nodiscard]] std::string resourceFolder(std::string_view bundleURL);

}  // namespace qelmo
