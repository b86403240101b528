// The window for people who do not use a pointer, do not see it, or see little of it.

#include <QAbstractItemView>
#include <QAccessible>
#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QMessageBox>
#include <QScrollBar>
#include <QTest>
#include <QToolTip>
#include <QWindow>
#include <algorithm>
#include <cmath>

#include "tests/ui/AlertAnswer.h"
#include "tests/ui/WindowRows.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/LogTextView.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// What an assistive tool says about a view, except its role, which the test of a whole job checks.
std::string saidOf(const QAccessibleInterface* view) {
    return view->text(QAccessible::Name).toStdString() + " (" +
           view->text(QAccessible::Description).toStdString() + ")";
}

QAccessibleInterface* accessible(QWidget* view) {
    return QAccessible::queryAccessibleInterface(view);
}

class Access : public ReadyWindowTest {
protected:
    Access() { waitUntilActive(); }

    void waitUntilActive() const {
        delegate->window->activateWindow();
        EXPECT_TRUE(waitUntil([this] { return delegate->window->isActiveWindow(); }));
    }
    QWidget* focused() const { return delegate->window->focusWidget(); }
    void type(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) const {
        QTest::keyClick(delegate->window->windowHandle(), key, modifiers);
    }
};

TEST_F(Access, NamesEveryViewFromTopToBottom) {
    const QAccessibleInterface* const window = accessible(delegate->window.get());
    std::vector<std::string> views;
    for (int index = 0; index < window->childCount(); ++index) {
        const QAccessibleInterface* view = window->child(index);
        // The panel itself has no text; the release in it has.
        if (view->childCount() == 1 && view->role() == QAccessible::Client) view = view->child(0);
        if (view->role() != QAccessible::Client) views.push_back(saidOf(view));
    }
    EXPECT_THAT(
        views, ElementsAre(
                   "QELMO // FLASH ()", "VARNOX  •  CARDPUTER ADV  •  COMPLETE 0x0 IMAGE ()",
                   textOf(delegate->releaseLabel) + " (Release)", "BOOT PORT ()", port + " ()",
                   "REFRESH BUILD (Reload the newest embedded build and rescan USB boot ports)",
                   "G0 BOOT MODE  //  Turn off → hold G0 → power on → release G0 → connect USB data cable ()",
                   "READY (Status)", "Flash progress (Idle)", "Log ()", "FLASH VERIFIED VARNOX ()",
                   "INTERNAL FLASH ONLY  •  SD CARD IS NEVER MOUNTED OR ACCESSED ()"));
    const auto labels = accessible(delegate->portPopup)->relations(QAccessible::Label);
    ASSERT_EQ(labels.size(), 1);
    EXPECT_EQ(labels.front().first->text(QAccessible::Name).toStdString(), "BOOT PORT");
}

TEST_F(Access, MovesFromTopToBottomWithTabAndBackAndShowsWhichControlHasTheFocus) {
    const auto hasRing = [this](const QWidget* control) {
        const QRect frame = frameOf(control);
        return colourOnScreen(*delegate->window, {frame.center().x(), frame.top() + 1}) ==
               hex(delegate->accent);
    };
    const QWidget* before = delegate->portPopup;
    EXPECT_EQ(focused(), before);
    const std::vector<QWidget*> order{delegate->refreshButton, delegate->logTextView, delegate->flashButton,
                                      delegate->portPopup};
    for (QWidget* const control : order) {
        EXPECT_FALSE(hasRing(control)) << saidOf(accessible(control));
        type(Qt::Key_Tab);
        EXPECT_EQ(focused(), control);
        EXPECT_TRUE(waitUntil([&] { return hasRing(control) && !hasRing(before); })) << before;
        before = control;
    }
    for (auto control = order.rbegin() + 1; control != order.rend(); ++control) {
        type(Qt::Key_Backtab, Qt::ShiftModifier);
        EXPECT_EQ(focused(), *control);
    }
}

// fault: the user does not confirm
// seen: "Flash cancelled. Nothing was written."
TEST_F(Access, PressesAButtonWithTheSpaceBarReturnAndEnter) {
    for (const Qt::Key key : {Qt::Key_Space, Qt::Key_Return, Qt::Key_Enter}) {
        takeLog();
        delegate->refreshButton->setFocus();
        type(key);
        EXPECT_THAT(takeLog(), HasSubstr("Found 1 candidate boot port.")) << key;
        const AlertAnswer answer(pressKey(Qt::Key_Escape));
        delegate->flashButton->setFocus();
        type(key);
        EXPECT_EQ(takeLog(), "Flash cancelled. Nothing was written.\n") << key;
    }
}

// fault: Return is held down on the flash button
TEST_F(Access, IgnoresAReturnThatIsHeldDown) {
    QWidget* const flash = delegate->flashButton;
    takeLog();
    for (const bool repeats : {false, true, true}) {
        QKeyEvent down(QEvent::KeyPress, Qt::Key_Return, {}, {}, repeats);
        QApplication::sendEvent(flash, &down);
        QKeyEvent up(QEvent::KeyRelease, Qt::Key_Return, {}, {}, true);
        QApplication::sendEvent(flash, &up);
    }
    EXPECT_EQ(AlertAnswer::unanswered(), nullptr);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(Access, KeepsTheFocusRingInPlaceWhileTheLogScrolls) {
    while (focused() != delegate->logTextView) type(Qt::Key_Tab);
    for (int line = 0; line < 40; ++line) delegate->appendLog("line " + std::to_string(line), true);
    settle();
    const QPoint corner = frameOf(delegate->logTextView).topLeft();
    const QPoint right = corner + QPoint(400, 0);
    const auto isRing = [&](int y) {
        return colourOnScreen(*delegate->window, right + QPoint(0, y)) == hex(delegate->accent);
    };
    const auto lines = [&] { return onScreen(*delegate->window, {corner + QPoint(10, 20), QSize(90, 90)}); };
    EXPECT_TRUE(waitUntil([&] { return isRing(0); }));
    const QImage before = lines();
    QScrollBar* const bar = delegate->logTextView->verticalScrollBar();
    bar->setValue(bar->value() - 1);
    ASSERT_TRUE(waitUntil([&] { return lines() != before; }));
    for (int y = 0; y < 40; ++y) EXPECT_EQ(isRing(y), y < 2) << y;
}

double luminance(const QColor& colour) {
    const auto linear = [](double part) {
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
           0.0722 * linear(colour.blueF());
}

/// As defined by the Web Content Accessibility Guidelines 2.1.
double contrast(const QColor& one, const QColor& other) {
    const auto [darker, lighter] = std::minmax({luminance(one), luminance(other)});
    return (lighter + 0.05) / (darker + 0.05);
}

void expectReadable(const std::string& what, const QColor& text, const QColor& ground) {
    EXPECT_GE(contrast(text, ground), 4.5) << what << ": " << hex(text) << " on " << hex(ground);
}

void expectReadable(const std::string& what, const QWidget* view, QPalette::ColorRole text,
                    QPalette::ColorRole ground) {
    for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled})
        expectReadable(what + ", group " + std::to_string(group), view->palette().color(group, text),
                       view->palette().color(group, ground));
}

class Contrast : public Access {
protected:
    /// Checks a control's text against every colour next to it on the screen, from top to bottom.
    void expectReadableOnScreen(const std::string& what, const QWidget* control, int besideText) const {
        const QRect frame = frameOf(control);
        const QImage ground =
            onScreen(*delegate->window, {frame.left() + besideText, frame.top() + 4, 1, frame.height() - 8});
        for (int y = 0; y < ground.height(); ++y)
            expectReadable(what + " on the screen", control->palette().color(control->foregroundRole()),
                           ground.pixelColor(0, y));
    }
};

TEST_F(Contrast, OfEveryLabelIsEnough) {
    const QPalette window = delegate->window->palette();
    for (const auto* label : delegate->window->findChildren<QLabel*>()) {
        const QRect frame = frameOf(label);
        const QColor ground =
            onScreen(*delegate->window, {frame.topLeft() - QPoint(2, 0), QSize(1, 1)}).pixelColor(0, 0);
        expectReadable(textOf(label), label->palette().color(label->foregroundRole()), ground);
    }
    for (const QColor& colour : {delegate->accent, delegate->warning, delegate->danger})
        expectReadable("a status", colour, window.color(QPalette::Window));
}

TEST_F(Contrast, OfEveryControlIsEnough) {
    for (const bool isEnabled : {true, false}) {
        for (QWidget* const control : std::initializer_list<QWidget*>{
                 delegate->portPopup, delegate->refreshButton, delegate->flashButton}) {
            control->setEnabled(isEnabled);
            settle();
            const std::string what = saidOf(accessible(control)) + (isEnabled ? "" : ", disabled");
            expectReadable(what, control, QPalette::ButtonText, QPalette::Button);
            expectReadableOnScreen(what, control, control == delegate->portPopup ? control->width() / 2 : 6);
        }
    }
    for (const QWidget* list :
         std::initializer_list<const QWidget*>{delegate->portPopup->view(), delegate->logTextView}) {
        expectReadable("text", list, QPalette::Text, QPalette::Base);
        expectReadable("selected text", list, QPalette::HighlightedText, QPalette::Highlight);
    }
    expectReadable("tooltip", QToolTip::palette().color(QPalette::ToolTipText),
                   QToolTip::palette().color(QPalette::ToolTipBase));
}

TEST_F(Contrast, OfAnAlertIsEnough) {
    const AlertAnswer answer(inOrder(
        [](QMessageBox& box) {
            for (const auto* label : box.findChildren<QLabel*>())
                expectReadable(textOf(label), label, label->foregroundRole(), QPalette::Window);
            for (const auto* button : box.buttons())
                expectReadable(button->text().toStdString(), button, QPalette::ButtonText, QPalette::Button);
        },
        pressKey(Qt::Key_Escape)));
    pressFlash();
}

}  // namespace
}  // namespace qelmo
