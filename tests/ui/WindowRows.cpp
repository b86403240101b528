#include "tests/ui/WindowRows.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QPixmap>
#include <QScreen>
#include <stdexcept>

#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/LogTextView.h"
#include "ui/TextLabel.h"
#include "ui/WindowLayout.h"

namespace qelmo {

namespace {

QLabel* labelOf(const AppDelegate& delegate, const char* text) {
    for (auto* candidate : delegate.window->findChildren<QLabel*>())
        if (textOf(candidate) == text) return candidate;
    throw std::runtime_error(std::string("no label ") + text);
}

}  // namespace

std::vector<WindowRow> rowsOf(const AppDelegate& delegate) {
    std::vector<QWidget*> boxes;
    for (auto* child : delegate.window->findChildren<QWidget*>())
        if (dynamic_cast<ColouredBox*>(child) != nullptr) boxes.push_back(child);
    const auto label = [&delegate](const char* text) { return labelOf(delegate, text); };
    return {{"title", {label("QELMO // FLASH")}, 0},
            {"subtitle", {label("VARNOX  •  CARDPUTER ADV  •  COMPLETE 0x0 IMAGE")}, 0},
            {"rule", {boxes.at(0)}, 2},
            {"release panel", {boxes.at(1)}, 82},
            {"port row", {label("BOOT PORT"), delegate.portPopup, delegate.refreshButton}, 32},
            {"hint",
             {label("G0 BOOT MODE  //  Turn off → hold G0 → power on → release G0 → connect USB data cable")},
             0},
            {"action row", {delegate.statusLabel, delegate.progress}, 26},
            {"log", {delegate.logTextView}, 210},
            {"flash button", {delegate.flashButton}, 44},
            {"footer", {label("INTERNAL FLASH ONLY  •  SD CARD IS NEVER MOUNTED OR ACCESSED")}, 0}};
}

QRect frameOf(const QWidget* view) {
    return {view->mapTo(view->window(), QPoint()), view->size()};
}

QRect frameOf(const WindowRow& row) {
    QRect frame;
    for (const QWidget* view : row.views) frame |= frameOf(view);
    return frame;
}

void expectRowsInPlace(const AppDelegate& delegate) {
    int top = Column::top;
    for (const WindowRow& row : rowsOf(delegate)) {
        const QRect frame = frameOf(row);
        EXPECT_EQ(frame.left(), Column::left) << row.name;
        EXPECT_EQ(frame.width(), Column::width) << row.name;
        EXPECT_EQ(frame.top(), top) << row.name;
        if (row.height > 0) {
            EXPECT_EQ(frame.height(), row.height) << row.name;
        }
        top = frame.bottom() + 1 + Column::spacing;
    }
    EXPECT_LE(top - Column::spacing, Column::bottom);
}

QImage onScreen(const QWidget& window, const QRect& part) {
    const QPoint global = window.mapToGlobal(part.topLeft());
    return window.screen()->grabWindow(0, global.x(), global.y(), part.width(), part.height()).toImage();
}

std::string colourOnScreen(const QWidget& window, const QPoint& place) {
    return hex(onScreen(window, {place, QSize(1, 1)}).pixelColor(0, 0));
}

void expectGroundsOnScreen(const AppDelegate& delegate) {
    const auto expectGround = [&delegate](const char* name, const QPoint& place, const char* colour) {
        EXPECT_EQ(colourOnScreen(*delegate.window, place), colour) << name;
    };
    const auto rows = rowsOf(delegate);
    const auto corner = [&rows](std::size_t row) { return frameOf(rows.at(row)).bottomLeft(); };
    expectGround("window", {5, 5}, "#090909");
    expectGround("rule", corner(2), "#1fd4ed");
    expectGround("release panel", corner(3) + QPoint(8, -1), "#161616");
    expectGround("log", corner(7) + QPoint(4, -4), "#000000");
}

}  // namespace qelmo
