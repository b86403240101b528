#pragma once

#include <string_view>

namespace qelmo {

/// Whatever the parent left behind, afterwards descriptors 0 to 2 are taken (a closed one fails every read
/// and write), a child's exit status is kept for us, and writing to a closed pipe or beyond a limit of size
/// is an error, not a death. Call it first, before there is a second thread.
void undoInheritedRestrictions();

/// Writes the whole text as it is, unbuffered.
/// Errors: std::system_error when not everything could be written.
void writeToStandardOutput(std::string_view text);

/// Writes the text as it is. There is nowhere to report a failure to, so none is reported.
void writeToStandardError(std::string_view text) noexcept;

}  // namespace qelmo
