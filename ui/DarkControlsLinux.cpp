#include "ui/DarkControls.h"

#include <QApplication>
#include <QPainter>
#include <QPalette>
#include <QPixmap>
#include <QProxyStyle>
#include <QStyleHints>
#include <QStyleOption>

#include "ui/Colour.h"
#include "ui/MonospacedFont.h"

namespace qelmo {

namespace {

constexpr int alertIconSize = 48;

/// A disc with a sign on it, in place of the toolkit's pictures, which are drawn for a light ground.
QIcon alertIcon(const QColor& colour, const QString& sign) {
    constexpr int sharpestScale = 2;
    QPixmap picture(alertIconSize * sharpestScale, alertIconSize * sharpestScale);
    picture.setDevicePixelRatio(sharpestScale);
    picture.fill(Qt::transparent);
    const QRect disc(0, 0, alertIconSize, alertIconSize);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawEllipse(disc.adjusted(2, 2, -2, -2));
    painter.setPen(Qt::black);
    painter.setFont(monospacedFont(alertIconSize * 2 / 3, QFont::Bold));
    painter.drawText(disc, Qt::AlignCenter, sign);
    return picture;
}

/// The toolkit's own style, without what a desktop theme would change about alerts and with a sign of the
/// focus that is seen on a dark ground.
class DarkStyle : public QProxyStyle {
public:
    DarkStyle() : QProxyStyle(QStringLiteral("fusion")) {}

    QIcon standardIcon(StandardPixmap icon, const QStyleOption* option,
                       const QWidget* widget) const override {
        if (icon == SP_MessageBoxCritical) return alertIcon(Palette::danger(), QStringLiteral("!"));
        if (icon == SP_MessageBoxInformation) return alertIcon(Palette::accent(), QStringLiteral("i"));
        return QProxyStyle::standardIcon(icon, option, widget);
    }

    /// The toolkit's sign of the keyboard's focus is darker than the buttons.
    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override {
        if (element == PE_FrameFocusRect) return;
        QProxyStyle::drawPrimitive(element, option, painter, widget);
        constexpr State focusByKey = State_HasFocus | State_KeyboardFocusChange;
        if (element != PE_PanelButtonCommand || (option->state & focusByKey) != focusByKey) return;
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(QPen(Palette::accent(), 2));
        painter->setBrush(Qt::NoBrush);
        painter->drawRoundedRect(QRectF(option->rect).adjusted(1, 1, -1, -1), 2, 2);
        painter->restore();
    }

    int pixelMetric(PixelMetric metric, const QStyleOption* option, const QWidget* widget) const override {
        return metric == PM_MessageBoxIconSize ? alertIconSize
                                               : QProxyStyle::pixelMetric(metric, option, widget);
    }

    int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                  QStyleHintReturn* returned) const override {
        // The buttons come in the order in which the alert names them.
        if (hint == SH_DialogButtonLayout) return 0;
        return QProxyStyle::styleHint(hint, option, widget, returned);
    }
};

QPalette darkPalette() {
    const QColor window = calibratedWhite(0.11);
    const QColor text = Palette::foreground();
    const QColor dimmed = Palette::muted();
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
    application.setStyle(new DarkStyle);
    application.setPalette(darkPalette());
}

}  // namespace qelmo
