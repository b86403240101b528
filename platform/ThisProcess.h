#pragma once

#include <string_view>

namespace qelmo {

/// Undoes restrictions that the parent process may have set. Afterwards descriptors 0 to 2 are open. If one
/// of them was closed before, reading from it and writing to it still fail. The exit status of a child can be
/// collected: SIGCHLD is no longer ignored. A write to a closed pipe or beyond the file size limit fails
/// instead of ending the process. Call it first, before a second thread starts.
void undoInheritedRestrictions();

/// Writes the whole text, unbuffered.
/// Errors: std::system_error if not all of it could be written.
void writeToStandardOutput(std::string_view text);

/// Writes the text. A failure is ignored, because there is nowhere left to report it.
void writeToStandardError(std::string_view text) noexcept;

}  // namespace qelmo
