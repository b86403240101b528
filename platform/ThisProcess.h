#pragma once

#include <string_view>

namespace qelmo {

/// Undoes what a parent may have set. Afterwards descriptors 0 to 2 are taken (a closed one fails every read
/// and write), a child's exit status is kept for this process, and a write to a closed pipe or beyond a limit
/// of size fails instead of ending the process. Call it first, before there is a second thread.
void undoInheritedRestrictions();

/// Writes the whole text as it is, unbuffered.
/// Errors: std::system_error when not everything could be written.
void writeToStandardOutput(std::string_view text);

/// Writes the text as it is. There is nowhere to report a failure to, so none is reported.
void writeToStandardError(std::string_view text) noexcept;

}  // namespace qelmo
