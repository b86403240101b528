#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace qelmo {

/// The name of the temporary file of `writeFileAtomically` is the target's name, this mark and six more
/// characters.
inline constexpr std::string_view temporaryMark = ".tmp-";

/// Replaces the file at `path` in one step: writes a temporary file next to it and renames that file. A
/// symbolic link at `path` is replaced, not followed. At every moment the file at `path` holds all of the old
/// bytes or all of the new ones. After the call the new bytes survive a power failure. After a failure no
/// temporary file is left. The target then has its old bytes, or its new bytes if only flushing the folder
/// failed. Errors: std::system_error naming the operation and the file or its folder.
void writeFileAtomically(const std::string& path, std::span<const std::byte> bytes);

}  // namespace qelmo
