#include <QApplication>
#include <QStyleHints>

#include "ui/DarkControls.h"

namespace qelmo {

void applyDarkControls(QApplication& /*application*/) {
    // The build refuses an older Qt, except to compile what nobody runs.
#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
    QGuiApplication::styleHints()->setColorScheme(Qt::ColorScheme::Dark);
#endif
}

}  // namespace qelmo
