#pragma once

#include <memory>

class QComboBox;
class QWidget;

namespace qelmo {

class ActionButton;
class ActivityBar;
class AppDelegate;
class LogTextView;
class TextLabel;

/// The window and those of its controls that change later. The window owns them.
struct WindowLayout {
    std::unique_ptr<QWidget> window;
    TextLabel* releaseLabel = nullptr;
    TextLabel* statusLabel = nullptr;
    QComboBox* portPopup = nullptr;
    ActionButton* refreshButton = nullptr;
    ActionButton* flashButton = nullptr;
    ActivityBar* progress = nullptr;
    LogTextView* logTextView = nullptr;
};

/// Builds the window from top to bottom, in the delegate's colours and with its actions behind the buttons.
/// It is not shown yet.
[[nodiscard]] WindowLayout buildWindowLayout(AppDelegate& delegate);

}  // namespace qelmo
