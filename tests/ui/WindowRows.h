#pragma once

#include <QImage>
#include <QRect>
#include <QWidget>
#include <string>

#include "ui/AppDelegate.h"

class QLabel;

namespace qelmo {

/// The label that shows this text; a window without one fails the test.
[[nodiscard]] QLabel* labelOf(const AppDelegate& delegate, const std::string& text);

/// Where a view of the window is in it.
[[nodiscard]] QRect frameOf(const QWidget* view);

/// Every view of the window has its place, its size, its type and its colour, and cuts no text off.
void expectRowsInPlace(const AppDelegate& delegate);

/// What the screen shows in a part of the window.
[[nodiscard]] QImage onScreen(const QWidget& window, const QRect& part);
[[nodiscard]] std::string colourOnScreen(const QWidget& window, const QPoint& place);

/// The screen shows the grounds of the window, at places that no alert covers.
void expectGroundsOnScreen(const AppDelegate& delegate);

}  // namespace qelmo
