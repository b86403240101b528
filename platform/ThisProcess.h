#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qelmo {

/// The real path of the running executable: absolute, links resolved.
/// Errors: std::system_error.
[[nodiscard]] std::string executablePath();

/// The argument list with which this process was started, the program path included at index 0.
/// Errors: std::system_error.
[[nodiscard]] std::vector<std::string> processArguments();

/// True when an element of the process's argument list is exactly `argument`, byte for byte.
[[nodiscard]] bool hasProcessArgument(std::string_view argument);

/// The environment as "NAME=value" entries.
[[nodiscard]] std::vector<std::string> processEnvironment();

/// Puts the process into the state on which the rest of the program relies, whatever its parent left behind:
/// descriptors 0 to 2 are taken (a closed one fails every read and write, and no file or socket of ours gets
/// its number), a child's exit status is kept for us, and writing to a closed pipe or beyond a limit
/// of size is an error, not a death.
/// Call it first, before there is a second thread.
void normalizeProcess();

/// Writes the whole text as it is, unbuffered.
/// Errors: std::system_error when not everything could be written.
void writeToStandardOutput(std::string_view text);

/// Writes the text as it is. There is nowhere to report a failure to, so none is reported.
void writeToStandardError(std::string_view text) noexcept;

}  // namespace qelmo
