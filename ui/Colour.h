#pragma once

#include <QColor>

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

/// The palette of the window's own views. What the toolkit draws is coloured in DarkControls.cpp.
namespace Palette {
[[nodiscard]] inline QColor background() {
    return calibratedWhite(0.035);
}
[[nodiscard]] inline QColor panel() {
    return calibratedWhite(0.085);
}
[[nodiscard]] inline QColor foreground() {
    return calibratedWhite(0.94);
}
[[nodiscard]] inline QColor muted() {
    return calibratedWhite(0.6);
}
[[nodiscard]] inline QColor accent() {
    return calibratedRgb(0.12, 0.83, 0.93);
}
[[nodiscard]] inline QColor warning() {
    return calibratedRgb(1.0, 0.64, 0.2);
}
[[nodiscard]] inline QColor danger() {
    return calibratedRgb(1.0, 0.3, 0.29);
}
}  // namespace Palette

}  // namespace qelmo
