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

}  // namespace qelmo
