#include <QComboBox>
#include <QTest>
#include <filesystem>

#include "tests/support/Fifo.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

using testing::ElementsAre;

/// What a press that leads to nothing must leave as it was.
struct WindowState {
    std::string panel, status, statusColour, checksum;
    std::vector<std::string> ports;
    bool flashEnabled, refreshEnabled, menuEnabled, animating, running;

    explicit WindowState(const AppDelegate& delegate)
        : panel(textOf(delegate.releaseLabel)),
          status(textOf(delegate.statusLabel)),
          statusColour(hex(delegate.statusLabel->colour())),
          checksum(delegate.resources ? delegate.resources->checksum : "none"),
          ports(delegate.ports),
          flashEnabled(delegate.flashButton->isEnabled()),
          refreshEnabled(delegate.refreshButton->isEnabled()),
          menuEnabled(delegate.portPopup->isEnabled()),
          animating(delegate.progress->isAnimating()),
          running(delegate.flashProcess != nullptr) {}

    friend bool operator==(const WindowState&, const WindowState&) = default;
};

/// A tool that must not be run: it leaves a file when it is.
class FlashJobRefusal : public ReadyWindowTest {
protected:
    FlashJobRefusal() { setTool("open('" + traceOfTool() + "', 'w')"); }

    std::string traceOfTool() const { return release.home() + "/tool-was-run"; }
    bool toolWasRun() const { return std::filesystem::exists(traceOfTool()); }

    void expectErrorAlert(const ShownAlert& alert, const std::string& reason) {
        EXPECT_EQ(alert.messageText, "QELMO Flasher stopped");
        EXPECT_EQ(alert.informativeText, reason);
        EXPECT_EQ(alert.icon, QMessageBox::Critical);
        EXPECT_THAT(alert.buttons, ElementsAre("OK"));
    }

    /// Presses the button over a release that was changed, and expects this error alert and nothing else.
    void expectPressRefused(const std::string& reason) {
        takeLog();
        const WindowState before(*delegate);
        const AlertAnswer answer(click("OK"));
        pressFlash();
        expectErrorAlert(answer.alert(), reason);
        EXPECT_TRUE(WindowState(*delegate) == before);
        EXPECT_EQ(takeLog(), "");
        EXPECT_FALSE(toolWasRun());
    }

    void expectSilence() {
        takeLog();
        const WindowState before(*delegate);
        delegate->flashDevice();
        EXPECT_TRUE(WindowState(*delegate) == before);
        EXPECT_EQ(takeLog(), "");
        EXPECT_FALSE(toolWasRun());
    }

    /// Presses the button, declines in this way, and expects the one log line and nothing else.
    void expectDeclined(const AlertAction& decline) {
        takeLog();
        const WindowState before(*delegate);
        const AlertAnswer answer(decline);
        pressFlash();
        EXPECT_TRUE(WindowState(*delegate) == before);
        EXPECT_EQ(takeLog(), "Flash cancelled. Nothing was written.\n");
        EXPECT_FALSE(toolWasRun());
    }
};

// fault: no release has been validated
TEST_F(FlashJobRefusal, IsSilentWithoutARelease) {
    delegate->resources.reset();
    expectSilence();
}

// fault: no port is selected
TEST_F(FlashJobRefusal, IsSilentWhenNoPortIsSelected) {
    delegate->portPopup->setCurrentIndex(-1);
    expectSilence();
}

// fault: the selection is outside the list of ports
TEST_F(FlashJobRefusal, IsSilentWithTheSelectionOutsideTheListOfPorts) {
    delegate->portPopup->addItem(QStringLiteral("/dev/cu.usbmodem102"));
    delegate->portPopup->setCurrentIndex(1);
    expectSilence();
}

TEST_F(FlashJobRefusal, IsSilentWithThePlaceholderSelected) {
    std::filesystem::remove(port.path());
    pressRefresh();
    EXPECT_EQ(delegate->portPopup->currentText().toStdString(), "No ESP32-S3 boot port found");
    expectSilence();
}

// fault: the button is pressed while a job runs
TEST_F(FlashJobRefusal, IsSilentWhileAJobRuns) {
    const Fifo gate;
    setTool("open('" + gate.path() + "').read()\nsys.exit(1)");
    startJob();
    EXPECT_FALSE(delegate->flashButton->isEnabled());
    const auto process = delegate->flashProcess;
    expectSilence();
    pressFlash();
    EXPECT_EQ(delegate->flashProcess, process);
    gate.open();
    EXPECT_TRUE(waitForEndOfJob());
}

// fault: the image was changed after validation
// seen: "QELMO Flasher stopped", "The embedded firmware checksum is not trusted."
TEST_F(FlashJobRefusal, NamesTheFaultOfAnImageThatWasChanged) {
    std::string image = ReleaseFixture::smallestImage();
    image[100] = 'x';
    writeTestFile(release.image(), image);
    expectPressRefused("The embedded firmware checksum is not trusted.");
}

// fault: the tool was removed after validation
// seen: "QELMO Flasher stopped", "The local Espressif tool is missing. Run BUILD-FULL-MAC.command once."
TEST_F(FlashJobRefusal, NamesTheFaultWhenTheToolIsGone) {
    std::filesystem::remove(release.tool());
    expectPressRefused("The local Espressif tool is missing. Run BUILD-FULL-MAC.command once.");
}

// fault: the manifest was damaged after validation
// seen: "QELMO Flasher stopped", "flash.baud: expected an integer, found a string"
TEST_F(FlashJobRefusal, NamesTheFaultOfAManifestThatCannotBeDecoded) {
    release.manifest.set("flash.baud", R"("fast")");
    writeRelease();
    expectPressRefused("flash.baud: expected an integer, found a string");
}

// fault: another valid release took the place of the validated one
// seen: "QELMO Flasher stopped", "The embedded release changed after validation."
TEST_F(FlashJobRefusal, RefusesAnotherValidReleaseThatTookThePlaceOfTheValidatedOne) {
    std::string image = ReleaseFixture::smallestImage();
    image[100] = 'x';
    release.setImage(image);
    writeRelease();
    expectPressRefused("The embedded release changed after validation.");
}

TEST_F(FlashJobRefusal, AsksBeforeAnythingIsErased) {
    const AlertAnswer answer(click("Cancel"));
    pressFlash();
    EXPECT_EQ(answer.alert().messageText, "Erase internal flash and install 1.0.0?");
    EXPECT_EQ(
        answer.alert().informativeText,
        "Device: /dev/cu.usbmodem101\n\nThis erases the Cardputer ADV internal 8 MB flash, writes the "
        "complete "
        "verified image at 0x0, verifies it, and resets the device. The SD card is not mounted or accessed.");
    EXPECT_EQ(answer.alert().icon, QMessageBox::Critical);
    EXPECT_THAT(answer.alert().buttons, ElementsAre("ERASE + FLASH", "Cancel"));
    EXPECT_EQ(answer.alert().defaultButton, "ERASE + FLASH");
}

// fault: the user does not confirm
// seen: "Flash cancelled. Nothing was written."
TEST_F(FlashJobRefusal, WritesOneLineWhenTheUserCancels) {
    expectDeclined(click("Cancel"));
}

TEST_F(FlashJobRefusal, TakesTheEscapeKeyAsCancel) {
    expectDeclined(pressKey(Qt::Key_Escape));
}

TEST_F(FlashJobRefusal, TakesClosingTheAlertAsCancel) {
    expectDeclined(closeAlert());
}

TEST_F(FlashJobRefusal, TakesAnAlertThatEndsWithoutAnAnswerAsCancel) {
    expectDeclined(endWithoutAnswer());
}

// fault: the button is pressed again while the alert is open
TEST_F(FlashJobRefusal, IgnoresASecondPressBehindAnOpenAlert) {
    const AlertAction pressAgain = [this](QMessageBox&) {
        delegate->flashDevice();
        delegate->flashButton->click();
    };
    expectDeclined(inOrder(pressAgain, click("Cancel")));
}

TEST_F(FlashJobRefusal, CanBeFollowedByAJob) {
    expectDeclined(click("Cancel"));
    runSuccessfulJob();
    EXPECT_TRUE(toolWasRun());
}

/// Here the interpreter is hidden by the test's surroundings.
class WithoutTheInterpreter : public ReadyWindowTest {};

// fault: the interpreter may not be executed
// seen: "FLASHER COULD NOT START"
TEST_F(WithoutTheInterpreter, AFlashJobSaysThatItCannotStartAndWhy) {
    takeLog();
    const AlertAnswer confirmation(click("ERASE + FLASH"));
    const AlertAnswer error(click("OK"));
    pressFlash();
    EXPECT_EQ(error.alert().messageText, "QELMO Flasher stopped");
    EXPECT_THAT(error.alert().informativeText, testing::HasSubstr("/usr/bin/python3"));
    EXPECT_EQ(textOf(delegate->statusLabel), "FLASHER COULD NOT START");
    EXPECT_EQ(hex(delegate->statusLabel->colour()), hex(delegate->danger));
    EXPECT_EQ(delegate->flashProcess, nullptr);
    EXPECT_TRUE(delegate->flashButton->isEnabled());
    EXPECT_EQ(takeLog(), "\nStarting verified full-image flash on /dev/cu.usbmodem101…\n");
}

}  // namespace

}  // namespace qelmo
