#pragma once

#include <QImage>
#include <QRect>
#include <QWidget>
#include <string>
#include <vector>

#include "ui/AppDelegate.h"

namespace qelmo {

/// The one column of the window, in device-independent pixels.
namespace Column {
constexpr int left = 26;
constexpr int width = 668;
constexpr int right = left + width;
constexpr int top = 24;
constexpr int bottom = 650 - 24;
constexpr int spacing = 14;
}  // namespace Column

/// One row of the window.
struct WindowRow {
    const char* name;
    std::vector<QWidget*> views;  ///< from left to right
    int height;                   ///< that the row must have; 0 where its type decides
};

/// All rows from top to bottom. A window that lacks one of their views fails the test with its name.
[[nodiscard]] std::vector<WindowRow> rowsOf(const AppDelegate& delegate);

/// Where a view of the window stands in it.
[[nodiscard]] QRect frameOf(const QWidget* view);
[[nodiscard]] QRect frameOf(const WindowRow& row);

/// Every row has its insets, its distance from the row above and its height.
void expectRowsInPlace(const AppDelegate& delegate);

/// What the screen shows in a part of the window.
[[nodiscard]] QImage onScreen(const QWidget& window, const QRect& part);
[[nodiscard]] std::string colourOnScreen(const QWidget& window, const QPoint& place);

/// The screen shows the grounds of the window, at places that no alert covers.
void expectGroundsOnScreen(const AppDelegate& delegate);

}  // namespace qelmo
