#pragma once

#include <string>
#include <vector>

class QWidget;

namespace qelmo {

/// A free-standing modal alert. Its texts are shown as they stand; what would make it larger than the screen
/// is cut, with "…" in its place.
struct Alert {
    enum class Style { informational, critical };

    /// The response of the first button; every further button's is one more.
    static constexpr int firstButtonReturn = 1000;

    Style style;
    std::string messageText;
    std::string informativeText;
    /// In the order in which they are shown. The first is the default and answers Return; the last answers
    /// Escape.
    std::vector<std::string> buttons;

    /// Shows the alert over `window` and waits for the answer: the pressed button's response, or 0 when the
    /// alert ended without one. The event loop goes on meanwhile.
    [[nodiscard]] int runModal(QWidget* window) const;
};

}  // namespace qelmo
