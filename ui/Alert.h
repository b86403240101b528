#pragma once

#include <string>
#include <vector>

class QWidget;

namespace qelmo {

/// A modal alert. Its texts are shown as plain text. A message of more than four lines is cut, and so is an
/// informative text that would make the alert higher than the screen. Cut text ends in "…".
struct Alert {
    enum class Style { informational, critical };

    /// The response of the first button. The response of each further button is one higher.
    static constexpr int firstButtonReturn = 1000;

    Style style;
    std::string messageText;
    std::string informativeText;
    /// In display order. The first is the default: Return presses it. Escape presses the last.
    std::vector<std::string> buttons;

    /// Shows the alert over `window` and waits for the answer. Returns the response of the pressed button, or
    /// 0 if the alert was closed in another way. The event loop keeps running meanwhile.
    [[nodiscard]] int runModal(QWidget* window) const;
};

}  // namespace qelmo
