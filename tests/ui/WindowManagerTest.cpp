#include <QApplication>
#include <QProcess>
#include <QScreen>
#include <QWindow>

#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/Alert.h"

namespace qelmo {

namespace {

using testing::HasSubstr;
using testing::Not;

/// Runs one of the X server's own programs while this program's events go on; returns what it printed.
std::string outputOf(const char* program, const QStringList& arguments) {
    QProcess process;
    process.start(QLatin1String(program), arguments);
    EXPECT_TRUE(waitUntil([&process] { return process.state() == QProcess::NotRunning; })) << program;
    EXPECT_EQ(process.exitCode(), 0) << program;
    return process.readAllStandardOutput().toStdString();
}

/// A key of the keyboard, as the X server reports it to whoever has the focus.
void typeKey(const char* key) {
    outputOf("xdotool", {QStringLiteral("key"), QLatin1String(key)});
}

class UnderAWindowManager : public ReadyWindowTest {
protected:
    UnderAWindowManager() {
        EXPECT_TRUE(waitUntil([this] { return delegate->window->isActiveWindow(); }));
    }

    std::string property(const char* name) const {
        return outputOf("xprop", {QStringLiteral("-id"), QString::number(delegate->window->winId()),
                                  QLatin1String(name)});
    }
};

TEST_F(UnderAWindowManager, TheWindowCanBeMovedMinimizedAndClosedButNotResized) {
    const std::string actions = property("_NET_WM_ALLOWED_ACTIONS");
    for (const char* allowed : {"MOVE", "MINIMIZE", "CLOSE"})
        EXPECT_THAT(actions, HasSubstr(std::string("_NET_WM_ACTION_") + allowed));
    for (const char* refused : {"RESIZE", "MAXIMIZE_HORZ", "MAXIMIZE_VERT"})
        EXPECT_THAT(actions, Not(HasSubstr(std::string("_NET_WM_ACTION_") + refused)));
}

TEST_F(UnderAWindowManager, TheWindowNamesItsOnlySize) {
    const std::string hints = property("WM_NORMAL_HINTS");
    EXPECT_THAT(hints, HasSubstr("minimum size: 720 by 650"));
    EXPECT_THAT(hints, HasSubstr("maximum size: 720 by 650"));
}

TEST_F(UnderAWindowManager, TheWindowIsCentred) {
    const QPoint distance = delegate->window->windowHandle()->frameGeometry().center() -
                            delegate->window->screen()->geometry().center();
    EXPECT_LE(std::abs(distance.x()), 10);
    EXPECT_LE(std::abs(distance.y()), 20);
}

TEST_F(UnderAWindowManager, AnAlertIsCentredOnTheWindow) {
    const QPoint centre = delegate->window->geometry().center();
    delegate->window->move(delegate->window->pos() + QPoint(-200, -80));
    EXPECT_TRUE(waitUntil([&] { return delegate->window->geometry().center() != centre; }));
    const AlertAnswer answer(inOrder(
        [this](QMessageBox& box) {
            EXPECT_TRUE(waitUntil([&box] { return box.isActiveWindow(); }));
            const QPoint distance = box.geometry().center() - delegate->window->geometry().center();
            EXPECT_LE(std::abs(distance.x()), 20);
            EXPECT_LE(std::abs(distance.y()), 40);
        },
        click("OK")));
    delegate->showError("x");
}

TEST_F(UnderAWindowManager, TheKeyboardAnswersAnAlertAtOnce) {
    const Alert question{Alert::Style::critical, "Go on?", "", {"ERASE + FLASH", "Cancel"}};
    {
        const AlertAnswer answer([](QMessageBox& box) {
            EXPECT_TRUE(waitUntil([&box] { return box.isActiveWindow(); }));
            typeKey("Escape");
        });
        EXPECT_EQ(question.runModal(delegate->window.get()), 1001);
    }
    const AlertAnswer answer([](QMessageBox& box) {
        EXPECT_TRUE(waitUntil([&box] { return box.isActiveWindow(); }));
        typeKey("Return");
    });
    EXPECT_EQ(question.runModal(delegate->window.get()), 1000);
}

TEST_F(UnderAWindowManager, TheTabKeyAndTheSpaceBarReachTheFlashButton) {
    const AlertAnswer answer([](QMessageBox& box) {
        EXPECT_TRUE(waitUntil([&box] { return box.isActiveWindow(); }));
        typeKey("Escape");
    });
    for (int tabs = 0; tabs < 5 && !delegate->flashButton->hasFocus(); ++tabs) {
        const QWidget* const before = QApplication::focusWidget();
        typeKey("Tab");
        EXPECT_TRUE(waitUntil([before] { return QApplication::focusWidget() != before; }));
    }
    EXPECT_TRUE(delegate->flashButton->hasFocus());
    typeKey("space");
    EXPECT_TRUE(waitUntil([&answer] { return answer.hasEnded(); }));
    EXPECT_THAT(takeLog(), testing::EndsWith("Flash cancelled. Nothing was written.\n"));
}

}  // namespace

}  // namespace qelmo
