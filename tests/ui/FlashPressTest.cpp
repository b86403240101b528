#include <QComboBox>
#include <filesystem>

#include "tests/support/Fifo.h"
#include "tests/ui/AlertAnswer.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"

namespace qelmo {

namespace {

using testing::ElementsAre;

/// Every press here leads to nothing. A tool that is run leaves a file.
class FlashPress : public ReadyWindowTest {
protected:
    FlashPress() {
        setTool("open('" + traceOfTool_ + "', 'w')");
        takeLog();
    }
    ~FlashPress() override { EXPECT_FALSE(std::filesystem::exists(traceOfTool_)); }

    /// Does something that must leave the window as it was and write exactly this to the log.
    void expectUnchanged(const std::function<void()>& action, const std::string& log = "") {
        const WindowState before = delegate->state();
        const std::vector<std::string> ports = delegate->ports;
        const bool hasRelease = delegate->resources.has_value();
        action();
        EXPECT_EQ(delegate->state(), before);
        expectShown(before.status);
        EXPECT_EQ(delegate->ports, ports);
        EXPECT_EQ(delegate->resources.has_value(), hasRelease);
        EXPECT_EQ(takeLog(), log);
    }
    void expectSilence() {
        expectUnchanged([this] { delegate->flashDevice(); });
    }

    void expectRefused(const std::string& reason) {
        expectUnchanged([&] {
            const AlertAnswer error(click("OK"));
            pressFlash();
            EXPECT_EQ(error.alert().messageText, "QELMO Flasher stopped");
            EXPECT_EQ(error.alert().informativeText, reason);
        });
    }

    void expectDeclined(const AlertAction& decline) {
        expectUnchanged(
            [&] {
                const AlertAnswer answer(decline);
                pressFlash();
            },
            "Flash cancelled. Nothing was written.\n");
    }

private:
    const std::string traceOfTool_ = release.home() + "/tool-was-run";
};

// fault: no release is validated, or no port is selected
TEST_F(FlashPress, IsSilentWithoutAReleaseOrAPort) {
    delegate->portPopup->addItem(QStringLiteral("/dev/cu.usbmodem102"));
    for (const int outsideTheList : {1, -1}) {
        delegate->portPopup->setCurrentIndex(outsideTheList);
        expectSilence();
    }
    unplug("cu.usbmodem101");
    pressRefresh();
    takeLog();
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre("No ESP32-S3 boot port found"));
    expectSilence();
    plugIn("cu.usbmodem101");
    pressRefresh();
    takeLog();
    delegate->resources.reset();
    expectSilence();
}

// fault: the button is pressed, or the ports are listed or refreshed, while a job runs
TEST_F(FlashPress, IsSilentWhileAJobRunsAndSoAreTheOtherActions) {
    const Fifo gate;
    setTool("open('" + gate.path() + "').read()\nsys.exit(1)");
    startJob();
    takeLog();
    const auto process = delegate->flashProcess;
    plugIn("cu.usbmodem102");
    change("version", R"("2.0.0")");
    expectUnchanged([this] {
        delegate->flashDevice();
        pressFlash();
        delegate->refreshPorts();
        delegate->refreshBuildAndPorts();
    });
    EXPECT_EQ(delegate->flashProcess, process);
    EXPECT_EQ(delegate->resources->manifest.version, "1.0.0");
    gate.open();
    EXPECT_TRUE(waitForEndOfJob());
}

// fault: the release was damaged, the tool removed, or the release replaced by another one after validation
// seen: "QELMO Flasher stopped", "flash.baud: expected an integer, found a string",
//     "The embedded release changed after validation."
TEST_F(FlashPress, NamesWhatHasHappenedToTheReleaseSinceItsValidation) {
    const std::string tool = readTestFile(release.tool());
    std::filesystem::remove(release.tool());
    expectRefused("The local Espressif tool is missing. Run BUILD-FULL-MAC.command once.");
    writeTestFile(release.tool(), tool);
    change("flash.baud", R"("fast")");
    expectRefused("flash.baud: expected an integer, found a string");
    std::string image = ReleaseFixture::smallestImage();
    image[100] = 'x';
    release.setImage(image);
    change("flash.baud", "921600");
    expectRefused("The embedded release changed after validation.");
}

TEST_F(FlashPress, AsksBeforeAnythingIsErased) {
    change("version", R"("<b>1</b> & 2")");
    pressRefresh();
    const AlertAnswer answer(click("Cancel"));
    pressFlash();
    EXPECT_EQ(answer.alert().messageText, "Erase internal flash and install <b>1</b> & 2?");
    EXPECT_EQ(answer.alert().informativeText,
              "Device: " + port +
                  "\n\nThis erases the Cardputer ADV internal 8 MB flash, writes the complete verified image "
                  "at 0x0, verifies it, and resets the device. The SD card is not mounted or accessed.");
    EXPECT_EQ(answer.alert().icon, QMessageBox::Critical);
    EXPECT_THAT(answer.alert().buttons, ElementsAre("ERASE + FLASH", "Cancel"));
    EXPECT_EQ(answer.alert().defaultButton, "ERASE + FLASH");
    EXPECT_EQ(answer.alert().focusedButton, "ERASE + FLASH");
}

// fault: the user does not confirm, or presses again while the alert is open
// seen: "Flash cancelled. Nothing was written."
TEST_F(FlashPress, WritesOneLineWhenTheUserDoesNotConfirm) {
    const AlertAction pressAgain = [this](QMessageBox&) {
        delegate->flashDevice();
        delegate->flashButton->click();
    };
    for (const AlertAction& decline : {click("Cancel"), pressKey(Qt::Key_Escape), closeAlert(),
                                       endWithoutAnswer(), inOrder(pressAgain, click("Cancel"))})
        expectDeclined(decline);
}

}  // namespace

}  // namespace qelmo
