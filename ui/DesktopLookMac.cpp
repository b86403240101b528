#include <QApplication>
#include <QStyleHints>

#include "ui/DesktopLook.h"

namespace qelmo {

void applyDarkControls(QApplication& /*application*/) {
    // The build refuses an older Qt, except to compile what nobody runs.
#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
    QGuiApplication::styleHints()->setColorScheme(Qt::ColorScheme::Dark);
#endif
}

// The Dock draws the bundle's icon sharply in every size. An icon of the toolkit's, which cannot read the
// bundle's, would replace it with one small picture.
void setApplicationIcon(const std::optional<std::string>& /*path*/) {}

bool hasApplicationIcon() {
    return true;
}

}  // namespace qelmo
