#pragma once

#include <memory>
#include <string>

namespace qelmo {

class AppDelegate;

/// The window self-test: refreshes the window and inspects it, writes the report to a file and to standard
/// output, and ends the process. If `delegate` is null, it only reports that and ends the process.
void checkWindow(const std::shared_ptr<AppDelegate>& delegate);

/// True if the window, its title, its icon and its buttons are as expected and the embedded release is valid.
[[nodiscard]] bool passesWindowSelfTest(const AppDelegate& delegate);

/// The six lines of the report, from the current state of the window.
[[nodiscard]] std::string windowSelfTestReport(const AppDelegate& delegate, bool passed);

}  // namespace qelmo
