#pragma once

class QApplication;

namespace qelmo {

/// Makes the controls that the toolkit draws belong to a dark window, whatever the desktop's theme. On macOS
/// the native style stays and is only asked for its dark scheme.
void applyDarkControls(QApplication& application);

}  // namespace qelmo
