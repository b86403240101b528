#include "tests/ui/WindowRows.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QFontInfo>
#include <QPixmap>
#include <QScreen>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/LogTextView.h"
#include "ui/TextLabel.h"
#include "ui/WindowLayout.h"

namespace qelmo {

namespace {

/// Lengths are in device-independent pixels. The table does not define what is 0 or empty.
struct WindowView {
    int row;
    const QWidget* view;
    int left, width, height;
    int typeSize = 0, weight = 0;
    const char* colour = "";
};

std::vector<const QWidget*> boxesOf(const AppDelegate& delegate) {
    std::vector<const QWidget*> boxes;
    for (const auto* child : delegate.window->findChildren<QWidget*>())
        if (dynamic_cast<const ColouredBox*>(child) != nullptr) boxes.push_back(child);
    return boxes;
}

/// All views from top to bottom, and those of a row from left to right.
std::vector<WindowView> viewsOf(const AppDelegate& delegate) {
    const auto label = [&delegate](const char* text) { return labelOf(delegate, text); };
    const QLabel* const hint =
        label("G0 BOOT MODE  //  Turn off → hold G0 → power on → release G0 → connect USB data cable");
    const QLabel* const footer = label("INTERNAL FLASH ONLY  •  SD CARD IS NEVER MOUNTED OR ACCESSED");
    const QLabel* const subtitle = label("VARNOX  •  CARDPUTER ADV  •  COMPLETE 0x0 IMAGE");
    return {{0, label("QELMO // FLASH"), 26, 668, 0, 29, QFont::Bold, "#f0f0f0"},
            {1, subtitle, 26, 668, 0, 12, QFont::DemiBold, "#1fd4ed"},
            {2, boxesOf(delegate).at(0), 26, 668, 2},
            {3, boxesOf(delegate).at(1), 26, 668, 82},
            {3, delegate.releaseLabel, 26 + 16, 668 - 32, 0, 13, QFont::Medium, "#f0f0f0"},
            {4, label("BOOT PORT"), 26, 82, 0, 11, QFont::Bold, "#999999"},
            {4, delegate.portPopup, 26 + 82 + 10, 444, 32, 12, QFont::Medium},
            {4, delegate.refreshButton, 694 - 122, 122, 0, 11, QFont::Bold},
            {5, hint, 26, 668, 0, 11, QFont::Medium, "#999999"},
            {6, delegate.statusLabel, 26, 180, 26, 11, QFont::Bold},
            {6, delegate.progress, 26 + 180 + 12, 476, 0},
            {7, delegate.logTextView, 26, 668, 210, 11, QFont::Normal},
            {8, delegate.flashButton, 26, 668, 44, 14, QFont::Bold},
            {9, footer, 26, 668, 0, 10, QFont::Bold, "#1fd4ed"}};
}

void expectAsInTable(const WindowView& expected) {
    const QRect frame = frameOf(expected.view);
    EXPECT_EQ(frame.left(), expected.left);
    EXPECT_EQ(frame.width(), expected.width);
    if (expected.height > 0) {
        EXPECT_EQ(frame.height(), expected.height);
    }
    EXPECT_GE(frame.height(), expected.view->heightForWidth(frame.width()));
    const QFont& font = expected.view->font();
    if (expected.typeSize > 0) {
        EXPECT_EQ(font.pixelSize(), expected.typeSize);
        EXPECT_EQ(font.weight(), expected.weight);
        EXPECT_TRUE(QFontInfo(font).fixedPitch());
    }
    if (*expected.colour != '\0') {
        EXPECT_EQ(hex(expected.view->palette().color(QPalette::WindowText)), expected.colour);
    }
}

}  // namespace

QLabel* labelOf(const AppDelegate& delegate, const std::string& text) {
    for (auto* candidate : delegate.window->findChildren<QLabel*>())
        if (textOf(candidate) == text) return candidate;
    throw std::runtime_error("no label " + text);
}

QRect frameOf(const QWidget* view) {
    return {view->mapTo(view->window(), QPoint()), view->size()};
}

void expectRowsInPlace(const AppDelegate& delegate) {
    EXPECT_EQ(delegate.window->size(), QSize(720, 650));
    int top = 24;
    for (int row = 0; row < 10; ++row) {
        SCOPED_TRACE("row " + std::to_string(row));
        QRect whole;
        std::vector<int> middles;
        for (const WindowView& expected : viewsOf(delegate)) {
            if (expected.row != row) continue;
            expectAsInTable(expected);
            whole |= frameOf(expected.view);
            middles.push_back(frameOf(expected.view).center().y());
        }
        EXPECT_EQ(whole.top(), top);
        for (const int middle : middles) EXPECT_LE(std::abs(middle - whole.center().y()), 1);
        top = whole.bottom() + 1 + 14;
    }
    EXPECT_LE(top - 14, 650 - 24);
}

QImage onScreen(const QWidget& window, const QRect& part) {
    const QPoint global = window.mapToGlobal(part.topLeft());
    return window.screen()->grabWindow(0, global.x(), global.y(), part.width(), part.height()).toImage();
}

std::string colourOnScreen(const QWidget& window, const QPoint& place) {
    return hex(onScreen(window, {place, QSize(1, 1)}).pixelColor(0, 0));
}

void expectGroundsOnScreen(const AppDelegate& delegate) {
    const auto at = [&delegate](const QPoint& place) { return colourOnScreen(*delegate.window, place); };
    const QPoint rule = frameOf(boxesOf(delegate).at(0)).bottomLeft();
    const QPoint panel = frameOf(boxesOf(delegate).at(1)).bottomLeft();
    EXPECT_EQ(at({5, 5}), "#090909");
    EXPECT_EQ(at(rule), "#1fd4ed");
    EXPECT_EQ(at(panel), "#090909") << "the panel's corner is round";
    EXPECT_EQ(at(panel + QPoint(8, -1)), "#161616");
    EXPECT_EQ(at(frameOf(delegate.logTextView).bottomLeft() + QPoint(4, -4)), "#000000");
}

}  // namespace qelmo
