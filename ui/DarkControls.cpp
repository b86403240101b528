#include "ui/DarkControls.h"

#include <QApplication>
#include <QPalette>
#include <QProxyStyle>
#include <QStyleHints>

#include "ui/Colour.h"

namespace qelmo {

namespace {

/// Desktop themes reorder the buttons of dialogs; an alert's come in the order in which it names them.
class FixedButtonOrder : public QProxyStyle {
public:
    FixedButtonOrder() : QProxyStyle(QStringLiteral("fusion")) {}

    int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                  QStyleHintReturn* returned) const override {
        if (hint == SH_DialogButtonLayout) return 0;
        return QProxyStyle::styleHint(hint, option, widget, returned);
    }
};

QPalette darkPalette() {
    const QColor window = calibratedWhite(0.11);
    const QColor text = calibratedWhite(0.94);
    const QColor dimmed = calibratedWhite(0.6);
    QPalette palette(text, calibratedWhite(0.2), calibratedWhite(0.35), calibratedWhite(0.05),
                     calibratedWhite(0.14), text, calibratedWhite(1.0), calibratedWhite(0.16), window);
    palette.setColor(QPalette::ToolTipBase, calibratedWhite(0.16));
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, dimmed);
    palette.setColor(QPalette::Highlight, calibratedRgb(0.05, 0.42, 0.5));
    palette.setColor(QPalette::HighlightedText, calibratedWhite(1.0));
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, dimmed);
    palette.setColor(QPalette::Disabled, QPalette::Button, calibratedWhite(0.13));
    return palette;
}

}  // namespace

void applyDarkControls(QApplication& application) {
#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
    application.styleHints()->setColorScheme(Qt::ColorScheme::Dark);
#endif
#ifdef Q_OS_MACOS
    Q_UNUSED(application);
    Q_UNUSED(darkPalette);
#else
    application.setStyle(new FixedButtonOrder);
    application.setPalette(darkPalette());
#endif
}

}  // namespace qelmo
