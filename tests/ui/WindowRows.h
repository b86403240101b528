#pragma once

#include <QImage>
#include <QRect>
#include <QWidget>
#include <string>

#include "ui/AppDelegate.h"

class QLabel;

namespace qelmo {

/// The label that shows this text. The test fails if there is none.
[[nodiscard]] QLabel* labelOf(const AppDelegate& delegate, const std::string& text);

[[nodiscard]] QRect frameOf(const QWidget* view);

/// Checks the place, size, type and colour of every view of the window, and that no text is cut off.
void expectRowsInPlace(const AppDelegate& delegate);

/// What the screen shows in a part of the window.
[[nodiscard]] QImage onScreen(const QWidget& window, const QRect& part);
[[nodiscard]] std::string colourOnScreen(const QWidget& window, const QPoint& place);

/// Checks the window's backgrounds on the screen, at places that no alert covers.
void expectGroundsOnScreen(const AppDelegate& delegate);

}  // namespace qelmo
