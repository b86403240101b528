#pragma once

#include <QColor>
#include <QFont>
#include <QFontDatabase>

namespace qelmo {

/// A device-independent grey; 0 is black, 1 is white.
[[nodiscard]] inline QColor calibratedWhite(double white) {
    const auto component = static_cast<float>(white);
    return QColor::fromRgbF(component, component, component);
}

/// A device-independent colour of components from 0 to 1.
[[nodiscard]] inline QColor calibratedRgb(double red, double green, double blue) {
    return QColor::fromRgbF(static_cast<float>(red), static_cast<float>(green), static_cast<float>(blue));
}

/// The palette of the window's own views.
struct Palette {
    [[nodiscard]] static QColor background() { return calibratedWhite(0.035); }
    [[nodiscard]] static QColor panel() { return calibratedWhite(0.085); }
    [[nodiscard]] static QColor foreground() { return calibratedWhite(0.94); }
    [[nodiscard]] static QColor muted() { return calibratedWhite(0.6); }
    [[nodiscard]] static QColor accent() { return calibratedRgb(0.12, 0.83, 0.93); }
    [[nodiscard]] static QColor warning() { return calibratedRgb(1.0, 0.64, 0.2); }
    [[nodiscard]] static QColor danger() { return calibratedRgb(1.0, 0.3, 0.29); }
};

/// The platform's monospaced system font. Sizes are device-independent pixels, so they do not depend on the
/// resolution that a display reports.
[[nodiscard]] inline QFont monospacedFont(int sizePixels, QFont::Weight weight) {
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(sizePixels);
    font.setWeight(weight);
    return font;
}

}  // namespace qelmo
