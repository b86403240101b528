#pragma once

#include <QPoint>
#include <QRect>

namespace qelmo {

class AppDelegate;

/// Builds the delegate's window from top to bottom, in its colours and with its actions behind the buttons,
/// and fills its fields with the window and the controls that change later. The window is not shown yet.
void buildWindowLayout(AppDelegate& delegate);

/// Where the corner of the window's frame goes on its screen: centred, or, where panels or a small screen
/// leave no place there, moved into `available`. The title bar is inside in any case.
[[nodiscard]] QPoint windowPosition(const QRect& screen, const QRect& available);

}  // namespace qelmo
