#pragma once

#include <string>
#include <vector>

namespace qelmo {

/// Runs the window until the user quits and returns the exit status of the process. `environment` is the one
/// with which the process was started.
///
/// The window and its toolkit are a library of the bundle that is loaded here and nowhere else. Without it,
/// without the toolkit or without a display, one sentence goes to standard error and the status is 1.
[[nodiscard]] int runWindowedStart(const std::vector<std::string>& environment);

}  // namespace qelmo
