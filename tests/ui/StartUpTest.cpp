#include <QApplication>
#include <QIcon>
#include <QWindow>
#include <filesystem>

#include "tests/support/Fifo.h"
#include "tests/ui/AlertAnswer.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/DesktopLook.h"
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

// fault: the bundle has no icon, or a damaged one
TEST_F(StartUp, UsesItsOwnIconWithoutAWordWhenTheBundlesCannotBeRead) {
    launch();
    EXPECT_EQ(colourOfIcon(), "#ff0000");
    const std::string icon = release.resources() + "/AppIcon.icns";
    for (const bool isDamaged : {true, false}) {
        std::filesystem::remove(icon);
        if (isDamaged) writeTestFile(icon, redIcon().substr(0, 40));
        replaceDelegate();
        launch();
        EXPECT_FALSE(QApplication::windowIcon().availableSizes().isEmpty());
        EXPECT_NE(colourOfIcon(), "#ff0000");
        EXPECT_THAT(takeLog(), StartsWith("Embedded full image verified.\n"));
    }
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

// fault: the window is closed while a job runs
TEST_F(StartUp, QuitsWhenTheWindowIsClosedDuringAFlashJobAndLeavesTheToolRunning) {
    const QuitRule rule;
    plugIn("cu.usbmodem101");
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
