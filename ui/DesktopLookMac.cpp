#include <QApplication>
#include <QStyleHints>

#include "ui/DesktopLook.h"

namespace qelmo {

void applyDarkControls(QApplication& /*application*/) {
    // The build refuses an older Qt, except for compile checks that are never run.
#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
    QGuiApplication::styleHints()->setColorScheme(Qt::ColorScheme::Dark);
#endif
}

// The Dock draws the bundle's icon, sharp in every size. Qt cannot read that icon; an icon set through Qt
// would replace it with one small picture.
void setApplicationIcon(const std::optional<std::string>& /*path*/) {}

bool hasApplicationIcon() {
    return true;
}

}  // namespace qelmo
