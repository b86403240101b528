#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace qelmo {

/// A temporary file of `writeFileAtomically` has its target's name, this and six characters.
inline constexpr std::string_view temporaryMark = ".tmp-";

/// Replaces the file at `path` in one step: the bytes go to a temporary file beside it that then takes its
/// name. A symbolic link at `path` is replaced, never followed. At every moment `path` holds the old bytes or
/// the new ones, whole, and after the call the new ones survive a power cut; a failure leaves the old ones
/// and no temporary file. Errors: std::system_error naming the operation and the file.
void writeFileAtomically(const std::string& path, std::span<const std::byte> bytes);

}  // namespace qelmo
