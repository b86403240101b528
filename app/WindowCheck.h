#pragma once

#include <memory>
#include <string>

namespace qelmo {

class AppDelegate;

/// The window self-test: inspects the window right after a refresh, leaves its report in a file and on
/// standard output, and ends the process. Without the delegate it only says so and ends the process.
void checkWindow(const std::shared_ptr<AppDelegate>& delegate);

/// True when the live window is the application's window, has its icon and its controls in their right state,
/// and the embedded release is valid.
[[nodiscard]] bool passesWindowSelfTest(const AppDelegate& delegate);

/// The six report lines, from the window's state at this moment.
[[nodiscard]] std::string windowSelfTestReport(const AppDelegate& delegate, bool passed);

}  // namespace qelmo
