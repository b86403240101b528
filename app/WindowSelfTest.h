#pragma once

#include <string>

namespace qelmo {

class AppDelegate;

/// Where the report is left for the caller who launched the application.
inline constexpr const char* windowSelfTestReportPath = "/tmp/qelmo-flasher-window-self-test.txt";

/// True when the live window is the application's window, has its icon and its controls in their right state,
/// and the embedded release is valid.
[[nodiscard]] bool passesWindowSelfTest(const AppDelegate& delegate);

/// The six report lines, from the window's state at this moment.
[[nodiscard]] std::string windowSelfTestReport(const AppDelegate& delegate, bool passed);

}  // namespace qelmo
