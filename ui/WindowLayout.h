#pragma once

namespace qelmo {

class AppDelegate;

/// Builds the delegate's window from top to bottom, in its colours and with its actions behind the buttons,
/// and fills its fields with the window and the controls that change later. The window is not shown yet.
void buildWindowLayout(AppDelegate& delegate);

}  // namespace qelmo
