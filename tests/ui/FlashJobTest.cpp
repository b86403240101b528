#include <QComboBox>
#include <QTest>

#include "tests/support/Fifo.h"
#include "tests/ui/AlertAnswer.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/LogTextView.h"

namespace qelmo {

namespace {

using namespace std::string_literals;
using testing::ElementsAre;

class FlashJob : public ReadyWindowTest {
protected:
    FlashJob() { takeLog(); }

    const std::string startLine = "\nStarting verified full-image flash on " + port + "…\n";

    std::string logUntil(const std::string& end) {
        std::string log;
        EXPECT_TRUE(waitUntil([&] { return (log += takeLog()).ends_with(end); })) << log;
        return log;
    }

    void expectUnchanged(const std::function<void()>& action, const std::string& log = "") {
        const WindowState before = delegate->state();
        const auto process = delegate->flashProcess;
        action();
        EXPECT_EQ(delegate->state(), before);
        EXPECT_EQ(delegate->flashProcess, process);
        expectShown(before.status);
        EXPECT_EQ(takeLog(), log);
    }
};

// fault: the tool prints NUL, ESC, a lone surrogate and an incomplete character
TEST_F(FlashJob, AsksThenShowsTheToolsOutputWhileItRunsThenReportsSuccess) {
    const Fifo gate;
    setTool(
        "os.write(1, b'Writing at 0x00010000... (12 %)\\r')\n"
        "os.write(2, b'a\\0b\\x1b[31mc\\xed\\xa0\\x80d\\xe2\\x82')\nopen('" +
        gate.path() + "').read()");
    {
        const AlertAnswer question(click("ERASE + FLASH"));
        pressFlash();
        EXPECT_EQ(question.alert().messageText, "Erase internal flash and install 1.0.0?");
        EXPECT_EQ(question.alert().informativeText,
                  "Device: " + port +
                      "\n\nThis erases the Cardputer ADV internal 8 MB flash, writes the complete verified "
                      "image at 0x0, verifies it, and resets the device. The SD card is not mounted or "
                      "accessed.");
        EXPECT_EQ(question.alert().style, Alert::Style::critical);
        EXPECT_THAT(question.alert().buttons, ElementsAre("ERASE + FLASH", "Cancel"));
    }
    expectShown("FLASHING — DO NOT DISCONNECT");
    EXPECT_EQ(logUntil("d\uFFFD"),
              startLine + "Writing at 0x00010000... (12 %)\n" + "a\0b\033[31mc\uFFFD\uFFFD\uFFFDd\uFFFD"s);
    std::string log;
    const AlertAnswer done(inOrder(
        [&](QMessageBox&) {
            expectShown("FLASH COMPLETE");
            log += takeLog();
        },
        click("Done")));
    gate.open();
    ASSERT_TRUE(waitUntil([&done] { return done.hasEnded(); }));
    EXPECT_EQ(log, "\nFLASH COMPLETE — verified and reset. SD card was not accessed.\n");
    EXPECT_EQ(done.alert().messageText, "QELMO Varnox is installed");
    EXPECT_EQ(
        done.alert().informativeText,
        "1.0.0 was written and verified. If the Cardputer remains in boot mode, power-cycle it normally "
        "without holding G0.");
    EXPECT_EQ(done.alert().style, Alert::Style::informational);
    EXPECT_THAT(done.alert().buttons, ElementsAre("Done"));
    EXPECT_EQ(takeLog(), "");
}

// fault: the tool exits with a status other than 0 or is killed, and the user tries again
// seen: "FLASH FAILED"
TEST_F(FlashJob, FailsWithoutAnAlertHoweverTheToolFailsAndCanBeRepeated) {
    for (const char* const end : {"sys.exit(1)", "os.kill(os.getpid(), signal.SIGKILL)"}) {
        setTool(end);
        startJob();
        ASSERT_TRUE(waitForEndOfJob());
        expectShown("FLASH FAILED");
        EXPECT_EQ(takeLog(),
                  startLine + "\nFLASH FAILED — keep USB connected, return to G0 boot mode, and retry.\n");
    }
}

TEST_F(FlashJob, LeavesTheFocusWhereItWasBeforeTheJob) {
    setTool("sys.exit(1)");
    for (QWidget* const control : std::initializer_list<QWidget*>{
             delegate->portPopup, delegate->refreshButton, delegate->logTextView, delegate->flashButton}) {
        control->setFocus();
        const AlertAnswer confirmation(click("ERASE + FLASH"));
        // As an assistive tool does it: a mouse click would move the focus.
        delegate->flashButton->click();
        ASSERT_TRUE(waitForEndOfJob());
        EXPECT_EQ(delegate->window->focusWidget(), control) << control->accessibleName().toStdString();
    }
}

// fault: the port and the release are replaced while the confirmation is open
TEST_F(FlashJob, UsesTheReleaseAndThePortOfThePressWhateverChangesDuringTheConfirmation) {
    setTool("");
    const AlertAction replace = [this](QMessageBox&) {
        unplug("cu.usbmodem101");
        change("version", R"("2.0.0")");
        delegate->refreshBuildAndPorts();
        EXPECT_EQ(delegate->resources->manifest.version, "2.0.0");
        takeLog();
    };
    {
        const AlertAnswer confirmation(inOrder(replace, click("ERASE + FLASH")));
        pressFlash();
    }
    const AlertAnswer done(click("Done"));
    ASSERT_TRUE(waitUntil([&done] { return done.hasEnded(); }));
    EXPECT_THAT(takeLog(), testing::StartsWith(startLine));
    EXPECT_THAT(done.alert().informativeText, testing::StartsWith("1.0.0 was written"));
}

// fault: the button is pressed, or the ports are listed or refreshed, while a job runs
TEST_F(FlashJob, IgnoresEveryActionWhileItRuns) {
    const Fifo gate;
    setTool("open('" + gate.path() + "').read()\nsys.exit(1)");
    startJob();
    takeLog();
    plugIn("cu.usbmodem102");
    change("version", R"("2.0.0")");
    expectUnchanged([this] {
        delegate->flashDevice();
        pressFlash();
        delegate->refreshPorts();
        delegate->refreshBuildAndPorts();
    });
    EXPECT_THAT(delegate->ports, ElementsAre(port));
    EXPECT_EQ(delegate->resources->manifest.version, "1.0.0");
    gate.open();
    EXPECT_TRUE(waitForEndOfJob());
}

using FlashPress = FlashJob;

TEST_F(FlashPress, IsSilentWithoutASelectedPort) {
    delegate->portPopup->addItem(QStringLiteral("/dev/cu.usbmodem102"));
    for (const int outsideTheList : {1, -1}) {
        delegate->portPopup->setCurrentIndex(outsideTheList);
        expectUnchanged([this] { delegate->flashDevice(); });
    }
}

// fault: the release was damaged or replaced after its validation
// seen: "QELMO Flasher stopped", "flash.baud: expected an integer, found a string",
//     "The embedded release changed after validation."
TEST_F(FlashPress, NamesWhatHasHappenedToTheReleaseSinceItsValidation) {
    const auto expectRefused = [this](const std::string& reason) {
        expectUnchanged([&] {
            const AlertAnswer error(click("OK"));
            pressFlash();
            EXPECT_EQ(error.alert().messageText, "QELMO Flasher stopped");
            EXPECT_EQ(error.alert().informativeText, reason);
        });
    };
    change("flash.baud", R"("fast")");
    expectRefused("flash.baud: expected an integer, found a string");
    release.setImage(ReleaseFixture::smallestImage().replace(100, 1, "x"));
    change("flash.baud", "921600");
    expectRefused("The embedded release changed after validation.");
}

}  // namespace
}  // namespace qelmo
