#pragma once

#include <string>

namespace qelmo {

/// True where an application's signature seals every file of its bundle, so that a replaced release breaks
/// it.
#ifdef __APPLE__
inline constexpr bool bundlesAreSealed = true;
#else
inline constexpr bool bundlesAreSealed = false;
#endif

/// Apple's signing tool, where macOS has it.
inline constexpr const char* systemSigningTool = "/usr/bin/codesign";

/// Refuses to go on where `tool` cannot be run. Errors: FlasherFailure.
void requireSigningTool(const std::string& tool);

/// Signs the bundle ad hoc with `tool`, everything in it included, and has the tool verify the result.
/// Errors: FlasherFailure with the tool's own words; std::system_error when it cannot be started.
void signBundle(const std::string& tool, const std::string& bundle);

/// Tells that the bundle must be signed again, with the command to paste into a shell.
[[nodiscard]] std::string signingNotice(const std::string& bundle);

}  // namespace qelmo
