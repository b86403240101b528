#include <QApplication>
#include <QProcess>
#include <QScreen>
#include <QWindow>

#include "tests/ui/AlertAnswer.h"
#include "tests/ui/WindowRows.h"
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

class StartUpOnADisplay : public WindowTest {};

/// Another window that comes up in front of the delegate's, with the keyboard, as soon as that is shown.
class WindowInFront : public QWidget {
public:
    explicit WindowInFront(const AppDelegate& delegate) : delegate_(delegate) {
        qApp->installEventFilter(this);
    }

    bool eventFilter(QObject* object, QEvent* event) override {
        if (event->type() == QEvent::Show && object == delegate_.window.get()) {
            setGeometry(delegate_.window->geometry());
            show();
            activateWindow();
        }
        return false;
    }

private:
    const AppDelegate& delegate_;
};

TEST_F(StartUpOnADisplay, BringsTheWindowToTheFrontWithTheKeyboard) {
    const WindowInFront other(*delegate);
    launch();
    EXPECT_TRUE(waitUntil([this] { return delegate->window->isActiveWindow(); }));
    EXPECT_TRUE(waitUntil([this] { return colourOnScreen(*delegate->window, {5, 5}) == "#090909"; }));
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
    for (const auto& [key, response] : {std::pair("Escape", 1001), {"Return", 1000}}) {
        const AlertAnswer answer([&key = key](QMessageBox& box) {
            EXPECT_TRUE(waitUntil([&box] { return box.isActiveWindow(); }));
            typeKey(key);
        });
        EXPECT_EQ(question.runModal(delegate->window.get()), response);
    }
}

}  // namespace

}  // namespace qelmo
