// Puts the real window into each of its states, compares what the screen shows with the state and the table
// of rows, and saves it as a PNG file in the working directory. No glyph is compared.

#include <gtest/gtest-spi.h>

#include <QApplication>
#include <QFileInfo>
#include <QScreen>
#include <QWindow>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "tests/support/Fifo.h"
#include "tests/ui/AlertAnswer.h"
#include "tests/ui/WindowRows.h"
#include "tests/ui/WindowTest.h"
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
/// The key of a picture's text that names the version of Qt that drew the window.
constexpr QLatin1String makerKey("Qt");

/// With what the window manager adds. The widget itself may still report an older frame.
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

/// Waits for the focus and the title bar. The many colours are those of the title's smooth letters.
bool isInFront(QWidget& view) {
    return waitUntil([&view] {
        // Asked repeatedly: windows that come and go within milliseconds may leave nothing with the focus.
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
        // The icon exists only if the bundle was built.
        const std::string icon = fromEnvironment("QELMO_BUNDLE") + "/Contents/Resources/AppIcon.icns";
        if (std::filesystem::exists(icon))
            writeTestFile(release.resources() + "/AppIcon.icns", readTestFile(icon));
    }

    static std::string fromEnvironment(const char* name) {
        const char* const value = std::getenv(name);
        return value == nullptr ? "." : value;
    }

    /// Checks the window with this status. What an alert covers is not checked.
    void expectOnScreen(const std::string& status) const {
        expectRowsInPlace(*delegate);
        expectGroundsOnScreen(*delegate);
        expectShown(status);
        const TextLabel* const label = delegate->statusLabel;
        EXPECT_TRUE(
            isCovered(label) ||
            coloursOf(qelmo::onScreen(*delegate->window, frameOf(label))).contains(label->colour().rgb()));
    }

    /// What a view has drawn may take a moment to reach the screen.
    bool isOnScreen(const std::string& status) const {
        testing::TestPartResultArray failures;
        const testing::ScopedFakeTestPartResultReporter silence(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
        expectOnScreen(status);
        return failures.size() == 0;
    }

    QImage picture(const std::string& status) const {
        QWidget* const alert = QApplication::activeModalWidget();
        EXPECT_TRUE(isInFront(alert == nullptr ? *delegate->window : *alert));
        if (!waitUntil([&] { return isOnScreen(status); })) expectOnScreen(status);
        return onScreen(frameOnScreen(*delegate->window));
    }

    void save(const std::string& name, const std::string& status) const {
        SCOPED_TRACE(name);
        QImage image = picture(status);
        image.setText(makerKey, QString::fromLatin1(qVersion()));
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
    }
    save("could-not-start", "FLASHER COULD NOT START");
}

/// The largest difference in any channel of the mean colours of cells of about 8 × 8 pixels.
int largestDifference(const QImage& one, const QImage& other) {
    const auto cells = [](const QImage& picture) {
        return picture.scaled(picture.size() / 8, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    };
    const QImage first = cells(one), second = cells(other);
    int largest = 0;
    for (int y = 0; y < first.height(); ++y)
        for (int x = 0; x < first.width(); ++x) {
            const QColor a = first.pixelColor(x, y), b = second.pixelColor(x, y);
            largest = std::max({largest, std::abs(a.red() - b.red()), std::abs(a.green() - b.green()),
                                std::abs(a.blue() - b.blue())});
        }
    return largest;
}

using DocumentedPicture = ScreenPictures;

TEST_F(DocumentedPicture, ShowsTheCurrentWindow) {
    const QString file = QString::fromStdString(fromEnvironment("QELMO_DOCUMENTS") + "/images/window.png");
    const QImage documented(file);
    ASSERT_FALSE(documented.isNull()) << "run tools/make-images";
    EXPECT_LT(QFileInfo(file).size(), 60'000);
    const std::string maker = documented.text(makerKey).toStdString();
    if (maker != qVersion())
        GTEST_SKIP() << "the picture was made with Qt " << maker << ", which draws controls in its own way";
    plugIn("cu.usbmodem101");
    launch();
    const QImage today = picture("READY");
    ASSERT_TRUE(documented.size() == today.size()) << "run tools/make-images";
    EXPECT_LE(largestDifference(documented, today), 24) << "run tools/make-images";
}

}  // namespace
}  // namespace qelmo
