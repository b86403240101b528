// Puts the real window into each of its states, compares what the screen shows with the state and the table
// of rows, and saves it as a PNG file in the working directory. No glyph is compared.

#include <gtest/gtest-spi.h>

#include <QApplication>
#include <QComboBox>
#include <QPushButton>
#include <QScreen>
#include <QWindow>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "tests/support/Fifo.h"
#include "tests/ui/AlertAnswer.h"
#include "tests/ui/WindowRows.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

constexpr const char* toolOutput = R"PY(
print('esptool.py v4.5.1\nSerial port ' + sys.argv[sys.argv.index('--port') + 1] + '\nConnecting...')
print('Chip is ESP32-S3 (QFN56) (revision v0.2)\nUploading stub...\nErasing flash (this may take a while)...')
for block in range(1, 26):
    sys.stdout.write('Writing at 0x%08x... (%d %%)\r' % (block * 0x14000, block * 4))
)PY";

/// The quality that makes Qt compress a PNG best.
constexpr int smallestFile = 0;

/// A place in a control of this size where its ground is seen.
QPoint besideText(const QSize& size) {
    return {3, size.height() / 2};
}

/// The ground of a plain button that is enabled or not, in the colours of the application.
std::string groundOfAButton(bool isEnabled, const QSize& size) {
    QPushButton plain;
    plain.resize(size);
    plain.setEnabled(isEnabled);
    return hex(plain.grab().toImage().pixelColor(plain.devicePixelRatio() * besideText(size)));
}

/// With what the window manager adds. The widget itself may keep to the frame that it had before the window
/// manager gave it one.
QRect frameOnScreen(const QWidget& view) {
    return view.windowHandle()->frameGeometry();
}

QImage onScreen(const QRect& part) {
    return qGuiApp->primaryScreen()->grabWindow(0, part.x(), part.y(), part.width(), part.height()).toImage();
}

bool isCovered(const QWidget* view) {
    const QWidget* const alert = QApplication::activeModalWidget();
    return alert != nullptr && frameOnScreen(*alert).intersects({view->mapToGlobal(QPoint()), view->size()});
}

std::set<QRgb> coloursOf(const QImage& picture) {
    std::set<QRgb> colours;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) colours.insert(picture.pixel(x, y));
    return colours;
}

/// Waits for the focus and for the title bar, which the window manager draws when it likes; the many colours
/// are those of the title's smooth letters.
bool isInFront(QWidget& view) {
    return waitUntil([&view] {
        // Asked again and again: what comes and goes within milliseconds may leave the focus nowhere.
        if (!view.isActiveWindow()) view.activateWindow();
        const QRect frame = frameOnScreen(view);
        const QRect bar(frame.topLeft(), QPoint(frame.right(), view.geometry().top() - 1));
        return view.isActiveWindow() && coloursOf(onScreen(bar)).size() > 16;
    });
}

/// The example release that all pictures show.
class ScreenPictures : public WindowTest {
protected:
    ScreenPictures() {
        std::string image(8388608, '\xFF');
        image[0] = image[0x10000] = '\xE9';
        release.setImage(image);
        change("version", R"("1.2.0")");
        // As far as the application was built.
        const char* const bundle = std::getenv("QELMO_BUNDLE");
        const std::string icon = "/Contents/Resources/AppIcon.icns";
        std::error_code isMissing;
        if (bundle != nullptr)
            std::filesystem::copy_file(bundle + icon, release.bundle() + icon,
                                       std::filesystem::copy_options::overwrite_existing, isMissing);
    }

    /// The window as it must be with this status; what an alert covers is not looked at.
    void expectOnScreen(const std::string& status) const {
        expectRowsInPlace(*delegate);
        expectGroundsOnScreen(*delegate);
        expectShown(status);
        const TextLabel* const label = delegate->statusLabel;
        EXPECT_TRUE(
            isCovered(label) ||
            coloursOf(qelmo::onScreen(*delegate->window, frameOf(label))).contains(label->colour().rgb()));
        for (const QWidget* control : std::initializer_list<QWidget*>{
                 delegate->portPopup, delegate->refreshButton, delegate->flashButton}) {
            const QRect frame = frameOf(control);
            if (isCovered(control)) continue;
            EXPECT_EQ(colourOnScreen(*delegate->window, frame.topLeft() + besideText(frame.size())),
                      groundOfAButton(control->isEnabled(), frame.size()));
        }
    }

    /// What a view has drawn is not on the screen at once.
    bool isOnScreen(const std::string& status) const {
        testing::TestPartResultArray failures;
        const testing::ScopedFakeTestPartResultReporter silence(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
        expectOnScreen(status);
        return failures.size() == 0;
    }

    void save(const std::string& name, const std::string& status) const {
        SCOPED_TRACE(name);
        QWidget* const alert = QApplication::activeModalWidget();
        EXPECT_TRUE(isInFront(alert == nullptr ? *delegate->window : *alert));
        if (!waitUntil([&] { return isOnScreen(status); })) expectOnScreen(status);
        const QImage image = onScreen(frameOnScreen(*delegate->window));
        const std::string file = name + (qGuiApp->devicePixelRatio() > 1 ? "@2x" : "") + ".png";
        EXPECT_TRUE(image.save(QString::fromStdString(file), "PNG", smallestFile)) << file;
    }

    AlertAction saveAlert(const std::string& name, const std::string& status) const {
        return [this, name, status](QMessageBox&) { save(name, status); };
    }

    void waitForLog(const std::string& words) {
        std::string log;
        ASSERT_TRUE(waitUntil([&] { return (log += takeLog()).find(words) != std::string::npos; }));
    }
};

TEST_F(ScreenPictures, Start) {
    delegate->buildWindow();
    delegate->window->show();
    save("start", "STARTING");
}

TEST_F(ScreenPictures, Ready) {
    plugIn("cu.usbmodem101");
    launch();
    save("ready", "READY");
}

// fault: no device is there; then two are plugged in before the refresh
// seen: "WAITING FOR G0 BOOT PORT", "CHOOSE CARDPUTER PORT"
TEST_F(ScreenPictures, Ports) {
    launch();
    save("no-port", "WAITING FOR G0 BOOT PORT");
    plugIn("cu.usbmodem101");
    plugIn("cu.wchusbserial110");
    pressRefresh();
    save("choose-port", "CHOOSE CARDPUTER PORT");
}

TEST_F(ScreenPictures, ValidationFailed) {
    change("binary.path", R"("a-folder-with-a-very-long-name-that-somebody-chose/release-complete-of-a-)"
                          R"(very-special-build-that-does-not-exist-any-more.bin")");
    launch();
    save("validation-failed", "NOT READY");
}

TEST_F(ScreenPictures, FailedJob) {
    plugIn("cu.usbmodem101");
    const Fifo gate;
    setTool(std::string(toolOutput) + "    if block == 9: open('" + gate.path() + "').read(); sys.exit(2)");
    launch();
    {
        const AlertAnswer answer(inOrder(saveAlert("confirmation", "READY"), click("ERASE + FLASH")));
        pressFlash();
    }
    waitForLog("(36 %)");
    save("flashing", "FLASHING — DO NOT DISCONNECT");
    gate.open();
    ASSERT_TRUE(waitForEndOfJob());
    settle();
    save("failed", "FLASH FAILED");
}

TEST_F(ScreenPictures, CompleteJob) {
    plugIn("cu.usbmodem101");
    const Fifo gate;
    setTool(std::string(toolOutput) +
            "print('Hash of data verified.\\n\\nLeaving...\\nHard resetting via RTS pin...')\nopen('" +
            gate.path() + "').read()");
    launch();
    startJob();
    waitForLog("RTS pin...");
    const AlertAnswer done(inOrder(saveAlert("complete-alert", "FLASH COMPLETE"), click("Done")));
    gate.open();
    ASSERT_TRUE(waitUntil([&done] { return done.hasEnded(); }));
    save("complete", "FLASH COMPLETE");
}

// fault: the interpreter is missing
// seen: "FLASHER COULD NOT START", "start /usr/bin/python3.old: No such file or directory"
TEST_F(ScreenPictures, CouldNotStart) {
    plugIn("cu.usbmodem101");
    context.interpreter = "/usr/bin/python3.old";
    replaceDelegate();
    launch();
    {
        const AlertAnswer confirmation(click("ERASE + FLASH"));
        const AlertAnswer error(
            inOrder(saveAlert("could-not-start-alert", "FLASHER COULD NOT START"), click("OK")));
        pressFlash();
        EXPECT_EQ(error.alert().informativeText, "start /usr/bin/python3.old: No such file or directory");
    }
    save("could-not-start", "FLASHER COULD NOT START");
}

}  // namespace

}  // namespace qelmo
