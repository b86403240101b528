#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace qelmo {

/// `writeFileAtomically` names its temporary file after the target, followed by this and six characters.
inline constexpr std::string_view temporaryMark = ".tmp-";

/// Replaces the file at `path` in one step: writes a temporary file next to it and renames that file. A
/// symbolic link at `path` is replaced, not followed. At every moment `path` holds all of the old bytes or
/// all of the new ones. After the call the new bytes survive a power failure. A failure leaves no temporary
/// file, and the old bytes unless only the folder's flush failed. Errors: std::system_error naming the
/// operation and the file or its folder.
void writeFileAtomically(const std::string& path, std::span<const std::byte> bytes);

}  // namespace qelmo
