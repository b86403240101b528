#include <QApplication>
#include <QIcon>
#include <QScreen>
#include <QTest>
#include <QWindow>
#include <filesystem>

#include "tests/support/Fifo.h"
#include "tests/ui/WindowRows.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/ApplicationIcon.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

using testing::StartsWith;

/// The colour in the middle of the application's icon.
std::string colourOfIcon() {
    const QImage picture = QApplication::windowIcon().pixmap(128).toImage();
    return picture.isNull() ? "no picture" : hex(picture.pixelColor(picture.rect().center()));
}

class StartUp : public WindowTest {};

TEST_F(StartUp, BeginsWithItsPaletteAndNothingElse) {
    EXPECT_EQ(hex(delegate->background), "#090909");
    EXPECT_EQ(hex(delegate->panel), "#161616");
    EXPECT_EQ(hex(delegate->foreground), "#f0f0f0");
    EXPECT_EQ(hex(delegate->muted), "#999999");
    EXPECT_EQ(hex(delegate->accent), "#1fd4ed");
    EXPECT_EQ(hex(delegate->warning), "#ffa333");
    EXPECT_EQ(hex(delegate->danger), "#ff4d4a");
    EXPECT_EQ(delegate->window, nullptr);
    EXPECT_EQ(delegate->releaseLabel, nullptr);
    EXPECT_EQ(delegate->statusLabel, nullptr);
    EXPECT_EQ(delegate->portPopup, nullptr);
    EXPECT_EQ(delegate->refreshButton, nullptr);
    EXPECT_EQ(delegate->flashButton, nullptr);
    EXPECT_EQ(delegate->progress, nullptr);
    EXPECT_EQ(delegate->logTextView, nullptr);
    EXPECT_FALSE(delegate->resources.has_value());
    EXPECT_EQ(delegate->flashProcess, nullptr);
    EXPECT_TRUE(delegate->ports.empty());
}

TEST_F(StartUp, ShowsTheWindowAndTheValidatedRelease) {
    launch();
    EXPECT_TRUE(delegate->window->isVisible());
    EXPECT_TRUE(delegate->resources.has_value());
    EXPECT_THAT(takeLog(), StartsWith("Embedded full image verified.\n"));
}

/// Notes the panel's text at the moment in which the window comes up.
class TextWhenShown : public QObject {
public:
    explicit TextWhenShown(const AppDelegate& delegate) : delegate_(delegate) {
        qApp->installEventFilter(this);
    }

    bool eventFilter(QObject* object, QEvent* event) override {
        if (event->type() == QEvent::Show && object == delegate_.window.get())
            text = textOf(delegate_.releaseLabel);
        return false;
    }

    std::string text;

private:
    const AppDelegate& delegate_;
};

TEST_F(StartUp, ShowsTheWindowBeforeItValidates) {
    const TextWhenShown shown(*delegate);
    launch();
    EXPECT_EQ(shown.text, "Validating embedded release…");
}

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

TEST_F(StartUp, BringsTheWindowToTheFrontWithTheKeyboard) {
    const WindowInFront other(*delegate);
    launch();
    EXPECT_TRUE(waitUntil([this] { return delegate->window->isActiveWindow(); }));
    EXPECT_TRUE(waitUntil([this] { return colourOnScreen(*delegate->window, {5, 5}) == "#090909"; }));
}

TEST_F(StartUp, TakesTheBundlesIcon) {
    launch();
    EXPECT_EQ(colourOfIcon(), "#ff0000");
}

// fault: the bundle has no icon
TEST_F(StartUp, UsesItsOwnIconWithoutAWordWhenTheBundleHasNone) {
    std::filesystem::remove(release.resources() + "/AppIcon.icns");
    launch();
    EXPECT_FALSE(QApplication::windowIcon().availableSizes().isEmpty());
    EXPECT_NE(colourOfIcon(), "#ff0000");
    EXPECT_THAT(takeLog(), StartsWith("Embedded full image verified.\n"));
}

// fault: the bundle's icon is damaged
TEST_F(StartUp, UsesItsOwnIconWithoutAWordWhenTheBundlesCannotBeRead) {
    writeTestFile(release.resources() + "/AppIcon.icns", redIcon().substr(0, 40));
    launch();
    EXPECT_FALSE(QApplication::windowIcon().availableSizes().isEmpty());
    EXPECT_NE(colourOfIcon(), "#ff0000");
    EXPECT_THAT(takeLog(), StartsWith("Embedded full image verified.\n"));
}

/// The application's own rule about its last window, for one test.
class QuitRule {
public:
    QuitRule() {
        QApplication::setQuitOnLastWindowClosed(
            AppDelegate::applicationShouldTerminateAfterLastWindowClosed());
    }
    ~QuitRule() { QApplication::setQuitOnLastWindowClosed(false); }
};

TEST_F(StartUp, QuitsWhenTheWindowIsClosed) {
    const QuitRule rule;
    mainQueue->post([this] {
        launch();
        delegate->window->windowHandle()->close();
    });
    EXPECT_EQ(QApplication::exec(), 0);
}

// fault: the window is closed while a job runs
TEST_F(StartUp, QuitsWhenTheWindowIsClosedDuringAFlashJobAndLeavesTheToolRunning) {
    const QuitRule rule;
    const BootPort port("cu.usbmodem101");
    const Fifo gate;
    const std::string trace = release.home() + "/tool-went-on";
    setTool("open('" + gate.path() + "').read()\nprint('x' * 1_000_000)\nopen('" + trace + "', 'w')");
    mainQueue->post([this] {
        launch();
        startJob();
        delegate->window->windowHandle()->close();
    });
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_NE(delegate->flashProcess, nullptr);
    delegate.reset();
    gate.open();
    EXPECT_TRUE(eventually([&trace] { return std::filesystem::exists(trace); }));
}

}  // namespace

}  // namespace qelmo
