#include "ui/DesktopLook.h"

#include <QApplication>
#include <QFile>
#include <QIcon>
#include <QImageReader>
#include <QPainter>
#include <QPalette>
#include <QPixmap>
#include <QProxyStyle>
#include <QStyleHints>
#include <QStyleOption>

#include "ui/Look.h"

namespace qelmo {

namespace {

constexpr int alertIconSize = 48;

/// A disc with a sign on it, in place of Qt's alert icons, which are made for a light background.
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

/// Qt's own style, with alerts that do not depend on the theme of the desktop.
class DarkStyle : public QProxyStyle {
public:
    DarkStyle() : QProxyStyle(QStringLiteral("fusion")) {}

    QIcon standardIcon(StandardPixmap icon, const QStyleOption* option,
                       const QWidget* widget) const override {
        if (icon == SP_MessageBoxCritical) return alertIcon(Palette::danger(), QStringLiteral("!"));
        if (icon == SP_MessageBoxInformation) return alertIcon(Palette::accent(), QStringLiteral("i"));
        return QProxyStyle::standardIcon(icon, option, widget);
    }

    /// Draws our own focus ring, because that of the style is darker than the buttons.
    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override {
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
        // The buttons stay in the order in which the alert lists them.
        if (hint == SH_DialogButtonLayout) return 0;
        return QProxyStyle::styleHint(hint, option, widget, returned);
    }
};

QPalette darkPalette() {
    const QColor window = calibratedWhite(0.11);
    const QColor text = Palette::foreground();
    QPalette palette(text, calibratedWhite(0.2), calibratedWhite(0.35), calibratedWhite(0.05),
                     calibratedWhite(0.14), text, calibratedWhite(1.0), calibratedWhite(0.16), window);
    palette.setColor(QPalette::ToolTipBase, calibratedWhite(0.16));
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, Palette::muted());
    palette.setColor(QPalette::Highlight, calibratedRgb(0.05, 0.42, 0.5));
    palette.setColor(QPalette::HighlightedText, calibratedWhite(1.0));
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, Palette::muted());
    palette.setColor(QPalette::Disabled, QPalette::Button, calibratedWhite(0.13));
    return palette;
}

/// Window managers show no larger icon. The pictures up to this size come first in the file and need only the
/// ICNS decoder. Reading a larger one takes longer than the rest of the start-up.
constexpr int largestPictureWidth = 128;

QIcon iconOfFile(const QString& path) {
    QIcon icon;
    QImageReader reader(path);
    for (int index = 0; index < reader.imageCount() && reader.jumpToImage(index); ++index) {
        const QImage picture = reader.read();
        if (!picture.isNull()) icon.addPixmap(QPixmap::fromImage(picture));
        if (picture.width() >= largestPictureWidth) break;
    }
    return icon;
}

}  // namespace

void applyDarkControls(QApplication& application) {
#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
    application.styleHints()->setColorScheme(Qt::ColorScheme::Dark);
#endif
    application.setStyle(new DarkStyle);
    application.setPalette(darkPalette());
}

void setApplicationIcon(const std::optional<std::string>& path) {
    QIcon icon;
    if (path) icon = iconOfFile(QFile::decodeName(path->c_str()));
    if (icon.isNull()) icon = QIcon(QStringLiteral(":/qelmo/FallbackIcon.png"));
    QApplication::setWindowIcon(icon);
    // Under Wayland a desktop shows the icon of the package's desktop entry, which has this name.
    QApplication::setDesktopFileName(QStringLiteral("io.qelmo.varnox-flasher"));
}

bool hasApplicationIcon() {
    return !QApplication::windowIcon().isNull();
}

}  // namespace qelmo
