#pragma once

#include <string>
#include <string_view>

namespace qelmo {

/// Runs the flashing tool once with its version command and returns the version that it prints. Touches no
/// device. Blocks the calling thread until the tool has exited; there is no time-out.
/// Errors: std::system_error if the interpreter cannot be started; FlasherFailure with the tool's whole
///         output if it exits with a status other than 0.
[[nodiscard]] std::string esptoolVersion(const std::string& interpreter, const std::string& esptoolURL);

/// The last non-empty line of the output of the tool, unchanged, or "unknown".
[[nodiscard]] std::string versionFromOutput(std::string_view output);

}  // namespace qelmo
