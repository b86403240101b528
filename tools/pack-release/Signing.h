#pragma once

#include <string>

namespace qelmo {

/// True if the signature of an application covers every file of its bundle, so that replacing a release
/// breaks the signature.
#ifdef __APPLE__
inline constexpr bool bundlesAreSealed = true;
#else
inline constexpr bool bundlesAreSealed = false;
#endif

/// The path of Apple's signing tool on macOS.
inline constexpr const char* systemSigningTool = "/usr/bin/codesign";

/// Refuses to continue if `tool` cannot be run. Errors: FlasherFailure.
void requireSigningTool(const std::string& tool);

/// Signs the bundle and everything in it ad hoc with `tool`, then has the tool verify the result.
/// Errors: FlasherFailure with the tool's output; std::system_error if the tool cannot be started.
void signBundle(const std::string& tool, const std::string& bundle);

/// The notice that the bundle must be signed again, with the command to paste into a shell.
[[nodiscard]] std::string signingNotice(const std::string& bundle);

}  // namespace qelmo
