// Not checks but pictures: puts the real window into each of its states and saves what the screen shows, as
// PNG files in the working directory. Run by the target "screenshots".

#include <QApplication>
#include <QGuiApplication>
#include <QPainter>
#include <QScreen>
#include <QTest>
#include <QWindow>
#include <cstdlib>
#include <filesystem>

#include "tests/support/Fifo.h"
#include "tests/ui/WindowTest.h"

namespace qelmo {

namespace {

constexpr const char* toolOutput = R"PY(
import sys
sys.stdout.write('''esptool.py v4.5.1
Serial port ''' + sys.argv[sys.argv.index('--port') + 1] + '''
Connecting...
Chip is ESP32-S3 (QFN56) (revision v0.2)
Features: WiFi, BLE, Embedded Flash 8MB (GD)
Crystal is 40MHz
MAC: f4:12:fa:00:00:01
Uploading stub...
Running stub...
Stub running...
Changing baud rate to 921600
Changed.
Configuring flash size...
Erasing flash (this may take a while)...
Chip erase completed successfully in 3.9s
''')
for block in range(1, 26):
    sys.stdout.write('Writing at 0x%08x... (%d %%)\r' % (block * 0x14000, block * 4))
)PY";

/// The example release that all pictures show.
class ScreenPictures : public WindowTest {
protected:
    ScreenPictures() {
        std::string image(8388608, '\xFF');
        image[0] = image[0x10000] = '\xE9';
        release.setImage(image);
        release.manifest.set("version", R"("1.2.0")");
        writeRelease();
        useTheApplicationsIcon();
    }

    /// As far as the application was built.
    void useTheApplicationsIcon() const {
        const char* const bundle = std::getenv("QELMO_BUNDLE");
        const std::string icon =
            std::string(bundle == nullptr ? "" : bundle) + "/Contents/Resources/AppIcon.icns";
        if (std::filesystem::exists(icon))
            writeTestFile(release.resources() + "/AppIcon.icns", readTestFile(icon));
    }

    void save(const std::string& state) const {
        const qreal scale = qGuiApp->devicePixelRatio();
        const QRect frame = delegate->window->frameGeometry();
        // grabWindow takes lengths of the window's own kind; the picture has the screen's.
        const QPixmap picture =
            delegate->window->screen()->grabWindow(0, frame.x(), frame.y(), frame.width(), frame.height());
        const std::string name = state + (scale > 1 ? "@2x" : "") + ".png";
        EXPECT_TRUE(picture.save(QString::fromStdString(name))) << name;
    }

    void launchAndSave(const std::string& state) {
        launch();
        saveActive(state);
    }

    void saveActive(const std::string& state) const {
        ASSERT_TRUE(waitUntil([this] { return delegate->window->isActiveWindow(); }));
        settleOnScreen();
        save(state);
    }

    /// The window manager has drawn its part once it has answered.
    void settleOnScreen() const {
        bool later = false;
        QTimer::singleShot(300, [&later] { later = true; });
        ASSERT_TRUE(waitUntil([&later] { return later; }));
    }

    void waitForLog(const std::string& words) {
        std::string log;
        ASSERT_TRUE(waitUntil([&] {
            log += takeLog();
            return log.find(words) != std::string::npos;
        }));
    }

    AlertAction saveAlert(const std::string& state) const {
        return [this, state](QMessageBox& box) {
            ASSERT_TRUE(waitUntil([&box] { return box.isActiveWindow(); }));
            settleOnScreen();
            save(state);
        };
    }
};

TEST_F(ScreenPictures, Start) {
    delegate->buildWindow();
    delegate->window->show();
    saveActive("start");
}

TEST_F(ScreenPictures, Ready) {
    const BootPort port("cu.usbmodem101");
    launchAndSave("ready");
}

TEST_F(ScreenPictures, ChoosePort) {
    const BootPort port("cu.usbmodem101"), other("cu.wchusbserial110");
    launchAndSave("choose-port");
}

TEST_F(ScreenPictures, NoPort) {
    launchAndSave("no-port");
}

TEST_F(ScreenPictures, ValidationFailed) {
    release.manifest.set("binary.path",
                         R"("a-folder-with-a-very-long-name-that-somebody-chose/release-complete-of-a-)"
                         R"(very-special-build-that-does-not-exist-any-more.bin")");
    writeRelease();
    launchAndSave("validation-failed");
}

TEST_F(ScreenPictures, Confirmation) {
    const BootPort port("cu.usbmodem101");
    launch();
    const AlertAnswer answer(inOrder(saveAlert("confirmation"), click("Cancel")));
    pressFlash();
}

TEST_F(ScreenPictures, Flashing) {
    const BootPort port("cu.usbmodem101");
    const Fifo gate;
    setTool(std::string(toolOutput) + "    if block == 9: open('" + gate.path() + "').read(); sys.exit(2)");
    launch();
    startJob();
    waitForLog("(36 %)");
    saveActive("flashing");
    gate.open();
    ASSERT_TRUE(waitForEndOfJob());
    settle();
    saveActive("failed");
}

TEST_F(ScreenPictures, Complete) {
    const BootPort port("cu.usbmodem101");
    const Fifo gate;
    setTool(std::string(toolOutput) +
            "print('''Wrote 8388608 bytes (2204661 compressed) at 0x00000000 in 52.3 "
            "seconds (effective 1282.6 kbit/s)...\nHash of data verified.\n\nLeaving..."
            "\nHard resetting via RTS pin...''')\nopen('" +
            gate.path() + "').read()");
    launch();
    startJob();
    waitForLog("RTS pin...");
    const AlertAnswer done(inOrder(saveAlert("complete-alert"), click("Done")));
    gate.open();
    ASSERT_TRUE(waitUntil([&done] { return done.hasEnded(); }));
    saveActive("complete");
}

TEST_F(ScreenPictures, ErrorAlert) {
    const BootPort port("cu.usbmodem101");
    launch();
    release.manifest.set("version", R"("1.3.0")");
    std::string image = ReleaseFixture::smallestImage();
    release.setImage(image);
    writeRelease();
    const AlertAnswer answer(inOrder(saveAlert("error-alert"), click("OK")));
    pressFlash();
}

}  // namespace

}  // namespace qelmo
