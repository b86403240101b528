#pragma once

#include <string>
#include <string_view>

namespace qelmo {

/// Joins as text with one "/": nothing is resolved, so an absolute or empty component stays below `folder`.
/// Paths are bytes; they are decoded only where they are shown.
[[nodiscard]] std::string joinedPath(std::string_view folder, std::string_view component);

/// The path up to its last "/", without it ("/" for an entry of the root folder, "." for a bare name).
[[nodiscard]] std::string parentFolder(std::string_view path);

/// The current user's home folder: HOME when it is an absolute path, else the user database's entry,
/// else the empty text.
[[nodiscard]] std::string homeFolder();

}  // namespace qelmo
