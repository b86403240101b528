// Puts the real window into each of its states, compares what the screen shows with the tables of sizes and
// colours, and saves it as a PNG file in the working directory. No glyph is compared.

#include <gtest/gtest-spi.h>

#include <QApplication>
#include <QComboBox>
#include <QFileInfo>
#include <QGuiApplication>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QWindow>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>

#include "tests/support/Fifo.h"
#include "tests/ui/WindowRows.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/TextLabel.h"

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

/// What the window shows in one of its states.
struct State {
    const char* name;
    const char* status;
    const char* statusColour;
    bool menuIsEnabled;
    bool refreshIsEnabled;
    bool flashIsEnabled;
    bool isBusy = false;
};

constexpr const char* accent = "#1fd4ed";
constexpr const char* warning = "#ffa333";
constexpr const char* danger = "#ff4d4a";

constexpr auto states = std::to_array<State>({
    {"start", "STARTING", warning, true, true, false},
    {"ready", "READY", accent, true, true, true},
    {"choose-port", "CHOOSE CARDPUTER PORT", accent, true, true, true},
    {"no-port", "WAITING FOR G0 BOOT PORT", warning, false, true, false},
    {"validation-failed", "NOT READY", danger, true, true, false},
    {"confirmation", "READY", accent, true, true, true},
    {"flashing", "FLASHING — DO NOT DISCONNECT", warning, false, false, false, true},
    {"failed", "FLASH FAILED", danger, true, true, true},
    {"complete-alert", "FLASH COMPLETE", accent, true, true, true},
    {"complete", "FLASH COMPLETE", accent, true, true, true},
    {"error-alert", "READY", accent, true, true, true},
    {"could-not-start-alert", "FLASHER COULD NOT START", danger, true, true, true},
    {"could-not-start", "FLASHER COULD NOT START", danger, true, true, true},
});

const State& stateNamed(const std::string& name) {
    for (const State& state : states)
        if (state.name == name) return state;
    throw std::runtime_error("no state " + name);
}

/// The quality that makes Qt compress a PNG best.
constexpr int smallestFile = 0;
/// A picture's text of this name is the version of Qt that drew the window.
constexpr QLatin1String makerKey("Qt");

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
        (void)waitUntil([this, &state] { return shows(stateNamed(state)); });
        expectState(stateNamed(state));
        const qreal scale = qGuiApp->devicePixelRatio();
        // The lengths are of the window's own kind; the picture has the screen's.
        const QPixmap picture = onScreen(frameOnScreen(*delegate->window));
        const std::string name = state + (scale > 1 ? "@2x" : "") + ".png";
        QImage image = picture.toImage();
        image.setText(makerKey, QString::fromLatin1(qVersion()));
        EXPECT_TRUE(image.save(QString::fromStdString(name), "PNG", smallestFile)) << name;
    }

    /// With what the window manager adds. The widget itself may keep to the frame that it had before the
    /// window manager gave it one.
    static QRect frameOnScreen(const QWidget& view) { return view.windowHandle()->frameGeometry(); }

    static QPixmap onScreen(const QRect& part) {
        return qGuiApp->primaryScreen()->grabWindow(0, part.x(), part.y(), part.width(), part.height());
    }

    /// What a view has drawn is not on the screen at once.
    bool shows(const State& state) const {
        testing::TestPartResultArray failures;
        const testing::ScopedFakeTestPartResultReporter silence(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
        expectState(state);
        return failures.size() == 0;
    }

    /// The window as its state must show it; what an alert covers is not looked at.
    void expectState(const State& state) const {
        SCOPED_TRACE(state.name);
        expectRowsInPlace(*delegate);
        expectGroundsOnScreen(*delegate);
        expectStatus(state);
        expectControl("port menu", delegate->portPopup, state.menuIsEnabled);
        expectControl("refresh button", delegate->refreshButton, state.refreshIsEnabled);
        expectControl("flash button", delegate->flashButton, state.flashIsEnabled);
        EXPECT_EQ(delegate->progress->isAnimating(), state.isBusy);
    }

    static bool isCovered(const QWidget* view) {
        const QWidget* const alert = QApplication::activeModalWidget();
        return alert != nullptr &&
               frameOnScreen(*alert).intersects({view->mapToGlobal(QPoint()), view->size()});
    }

    void expectStatus(const State& state) const {
        const TextLabel* const label = delegate->statusLabel;
        EXPECT_EQ(textOf(label), state.status);
        EXPECT_EQ(hex(label->palette().color(label->foregroundRole())), state.statusColour) << "status";
        if (isCovered(label)) return;
        const QImage shown = qelmo::onScreen(*delegate->window, frameOf(label));
        bool isShown = false;
        for (int y = 0; y < shown.height(); ++y)
            for (int x = 0; x < shown.width(); ++x)
                isShown = isShown || hex(shown.pixelColor(x, y)) == state.statusColour;
        EXPECT_TRUE(isShown) << "no pixel of the status is " << state.statusColour;
    }

    void expectControl(const char* name, const QWidget* control, bool isEnabled) const {
        EXPECT_EQ(control->isEnabled(), isEnabled) << name;
        if (isCovered(control)) return;
        const QRect frame = frameOf(control);
        EXPECT_EQ(colourOnScreen(*delegate->window, frame.topLeft() + besideText(frame.size())),
                  groundOfAButton(isEnabled, frame.size()))
            << name;
    }

    void launchAndSave(const std::string& state) {
        launch();
        saveActive(state);
    }

    void saveActive(const std::string& state) const {
        ASSERT_TRUE(waitUntilActive(*delegate->window));
        ASSERT_TRUE(waitForTitleBar(*delegate->window));
        save(state);
    }

    /// Asks again and again: what comes and goes within milliseconds may leave the focus nowhere.
    static bool waitUntilActive(QWidget& view) {
        return waitUntil([&view] {
            if (!view.isActiveWindow()) view.activateWindow();
            return view.isActiveWindow();
        });
    }

    /// The window manager draws its part when it likes; the many colours are those of the title's smooth
    /// letters.
    static bool waitForTitleBar(const QWidget& view) {
        return waitUntil([&view] {
            const QRect frame = frameOnScreen(view);
            const QRect bar(frame.topLeft(), QPoint(frame.right(), view.geometry().top() - 1));
            const QImage shown = onScreen(bar).toImage();
            std::set<QRgb> colours;
            for (int y = 0; y < shown.height(); ++y)
                for (int x = 0; x < shown.width(); ++x) colours.insert(shown.pixel(x, y));
            return colours.size() > 16;
        });
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
            ASSERT_TRUE(waitUntilActive(box));
            ASSERT_TRUE(waitForTitleBar(box));
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

TEST_F(ScreenPictures, CouldNotStart) {
    const BootPort port("cu.usbmodem101");
    launch();
    // No environment may hold so long a value; the system refuses to start anything with it.
    delegate->environment.push_back("QELMO_TEST_TOO_LONG=" + std::string(200'000, 'x'));
    {
        const AlertAnswer confirmation(click("ERASE + FLASH"));
        const AlertAnswer error(inOrder(saveAlert("could-not-start-alert"), click("OK")));
        pressFlash();
    }
    saveActive("could-not-start");
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

// ---- the picture in the documents ----

/// No glyph is compared, only the mean colours of cells of about this many pixels in each direction.
constexpr int cellSize = 8;
constexpr int allowedDifference = 24;
constexpr qint64 allowedFileSize = 60'000;

QImage cellsOf(const QImage& picture, const QRect& part) {
    return picture.copy(part).scaled((part.size() / cellSize).expandedTo({1, 1}), Qt::IgnoreAspectRatio,
                                     Qt::SmoothTransformation);
}

/// Of any channel of any cell.
int largestDifference(const QImage& one, const QImage& other) {
    int largest = 0;
    for (int y = 0; y < one.height(); ++y)
        for (int x = 0; x < one.width(); ++x) {
            const QColor first = one.pixelColor(x, y), second = other.pixelColor(x, y);
            largest =
                std::max({largest, std::abs(first.red() - second.red()),
                          std::abs(first.green() - second.green()), std::abs(first.blue() - second.blue())});
        }
    return largest;
}

/// The colour that most pixels have.
std::string groundOf(const QImage& picture, const QRect& part) {
    std::map<QRgb, int> pixels;
    for (int y = part.top(); y <= part.bottom(); ++y)
        for (int x = part.left(); x <= part.right(); ++x) ++pixels[picture.pixel(x, y)];
    const auto fewer = [](const auto& one, const auto& other) { return one.second < other.second; };
    return hex(std::max_element(pixels.begin(), pixels.end(), fewer)->first);
}

class DocumentedPicture : public ScreenPictures {
protected:
    static std::string documentedFile() {
        const char* const documents = std::getenv("QELMO_DOCUMENTS");
        return std::string(documents == nullptr ? "." : documents) + "/images/window.png";
    }

    void expectRowsOf(const QImage& documented, const QImage& today) const {
        const QPoint inFrame =
            delegate->window->geometry().topLeft() - frameOnScreen(*delegate->window).topLeft();
        const auto expectSame = [&](const char* name, const QRect& part) {
            EXPECT_EQ(groundOf(documented, part), groundOf(today, part)) << name << ": run tools/make-images";
            EXPECT_LE(largestDifference(cellsOf(documented, part), cellsOf(today, part)), allowedDifference)
                << name << ": run tools/make-images";
        };
        for (const WindowRow& row : rowsOf(*delegate)) expectSame(row.name, frameOf(row).translated(inFrame));
        expectSame("the whole window", today.rect());
    }
};

TEST_F(DocumentedPicture, ShowsTheWindowOfToday) {
    const QString file = QString::fromStdString(documentedFile());
    const QImage documented(file);
    ASSERT_FALSE(documented.isNull()) << documentedFile() << ": run tools/make-images";
    EXPECT_LT(QFileInfo(file).size(), allowedFileSize);
    const std::string maker = documented.text(makerKey).toStdString();
    if (maker != qVersion())
        GTEST_SKIP() << "the picture was made with Qt " << maker << ", which draws controls in its own way";
    const BootPort port("cu.usbmodem101");
    launch();
    ASSERT_TRUE(waitUntilActive(*delegate->window));
    ASSERT_TRUE(waitForTitleBar(*delegate->window));
    ASSERT_TRUE(waitUntil([this] { return shows(stateNamed("ready")); }));
    const QImage today = onScreen(frameOnScreen(*delegate->window)).toImage();
    ASSERT_TRUE(documented.size() == today.size()) << "run tools/make-images";
    expectRowsOf(documented, today);
}

}  // namespace

}  // namespace qelmo
