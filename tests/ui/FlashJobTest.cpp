#include <QApplication>
#include <QComboBox>
#include <QTest>
#include <filesystem>
#include <optional>

#include "flashing/PortClaim.h"
#include "platform/MainBundle.h"
#include "platform/ThisProcess.h"
#include "tests/support/Fifo.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/LogTextView.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* startLine = "\nStarting verified full-image flash on /dev/cu.usbmodem101…\n";
constexpr const char* failedLine =
    "\nFLASH FAILED — keep USB connected, return to G0 boot mode, and retry.\n";
constexpr const char* completeLine = "\nFLASH COMPLETE — verified and reset. SD card was not accessed.\n";

class FlashJob : public ReadyWindowTest {
protected:
    /// The tool writes its arguments to a file, one a line and without its own path, and ends well.
    void letToolWriteDownItsArguments() {
        setTool("open('" + argumentsFile() + "', 'w').write('\\n'.join(sys.argv[1:]) + '\\n')");
    }

    std::string argumentsFile() const { return release.home() + "/arguments"; }

    std::string argumentsOfSuccessfulJob() {
        letToolWriteDownItsArguments();
        runSuccessfulJob();
        return readTestFile(argumentsFile());
    }

    std::string argumentsWith(const std::string& eraseOption) const {
        return "--chip\nesp32s3\n--port\n/dev/"
               "cu.usbmodem101\n--baud\n921600\n--before\ndefault_reset\n--after\n"
               "hard_reset\nwrite_flash\n" +
               eraseOption + "--flash_mode\ndio\n--flash_freq\n80m\n--flash_size\n8MB\n--verify\n0x0\n" +
               resourcesOfMainBundle() + "/release-complete.bin\n";
    }

    /// The fixture's folder, by the name under which the program finds it.
    std::string resourcesOfMainBundle() const { return resourceFolder(MainBundle::bundleURL()); }

    void expectControlsEnabled() const {
        EXPECT_TRUE(delegate->flashButton->isEnabled());
        EXPECT_TRUE(delegate->refreshButton->isEnabled());
        EXPECT_TRUE(delegate->portPopup->isEnabled());
        EXPECT_FALSE(delegate->progress->isAnimating());
        EXPECT_EQ(delegate->flashProcess, nullptr);
    }

    void expectStatus(const std::string& text, const QColor& colour) const {
        EXPECT_EQ(textOf(delegate->statusLabel), text);
        EXPECT_EQ(hex(delegate->statusLabel->colour()), hex(colour));
    }

    /// Runs a tool that does not end well, to its end.
    void expectFailure(const std::string& tool) {
        setTool(tool);
        takeLog();
        startJob();
        ASSERT_TRUE(waitForEndOfJob());
        expectStatus("FLASH FAILED", delegate->danger);
        EXPECT_EQ(takeLog(), std::string(startLine) + failedLine);
        expectControlsEnabled();
    }
};

TEST_F(FlashJob, DisablesTheControlsAndSaysSoWhileTheToolRuns) {
    const Fifo gate;
    setTool("open('" + gate.path() + "').read()\nsys.exit(1)");
    takeLog();
    startJob();
    EXPECT_NE(delegate->flashProcess, nullptr);
    EXPECT_FALSE(delegate->flashButton->isEnabled());
    EXPECT_FALSE(delegate->refreshButton->isEnabled());
    EXPECT_FALSE(delegate->portPopup->isEnabled());
    EXPECT_TRUE(delegate->progress->isAnimating());
    expectStatus("FLASHING — DO NOT DISCONNECT", delegate->warning);
    EXPECT_EQ(takeLog(), startLine);
    gate.open();
    EXPECT_TRUE(waitForEndOfJob());
}

TEST_F(FlashJob, ShowsTheToolsOutputWhileTheToolStillRuns) {
    const Fifo gate;
    setTool(
        "sys.stdout.write('Writing at 0x00010000... (12 %)\\r')\nsys.stderr.write('a warning')\n"
        "open('" +
        gate.path() + "').read()\nsys.exit(1)");
    takeLog();
    std::string log;
    startJob();
    EXPECT_TRUE(waitUntil([&] {
        log += takeLog();
        return log.find("a warning") != std::string::npos;
    }));
    EXPECT_EQ(log, std::string(startLine) + "Writing at 0x00010000... (12 %)\na warning");
    gate.open();
    EXPECT_TRUE(waitForEndOfJob());
}

TEST_F(FlashJob, ReportsSuccessInTheStatusThenTheLogThenAnAlert) {
    const Fifo gate;
    setTool("print('Hash of data verified.')\nopen('" + gate.path() + "').read()");
    takeLog();
    std::string log;
    startJob();
    EXPECT_TRUE(waitUntil([&] {
        log += takeLog();
        return log.find("verified.\n") != std::string::npos;
    }));
    const AlertAnswer done(inOrder(
        [&](QMessageBox&) {
            expectStatus("FLASH COMPLETE", delegate->accent);
            expectControlsEnabled();
            log += takeLog();
        },
        click("Done")));
    gate.open();
    ASSERT_TRUE(waitUntil([&done] { return done.hasEnded(); }));

    EXPECT_EQ(log, std::string(startLine) + "Hash of data verified.\n" + completeLine);
    EXPECT_EQ(done.alert().messageText, "QELMO Varnox is installed");
    EXPECT_EQ(
        done.alert().informativeText,
        "1.0.0 was written and verified. If the Cardputer remains in boot mode, power-cycle it normally "
        "without holding G0.");
    EXPECT_EQ(done.alert().icon, QMessageBox::Information);
    EXPECT_THAT(done.alert().buttons, ElementsAre("Done"));
    EXPECT_EQ(takeLog(), "");
    expectStatus("FLASH COMPLETE", delegate->accent);
    expectControlsEnabled();
}

// fault: the tool ends with a status that is not 0
// seen: "FLASH FAILED"
TEST_F(FlashJob, FailsWithoutAnAlertWhenTheToolExitsWithOne) {
    expectFailure("sys.exit(1)");
}

TEST_F(FlashJob, FailsWithoutAnAlertWhenTheToolExitsWithTheHighestStatus) {
    expectFailure("sys.exit(255)");
}

TEST_F(FlashJob, FailsWithoutAnAlertWhenTheToolIsKilled) {
    expectFailure("os.kill(os.getpid(), signal.SIGKILL)");
}

// fault: the tool fails, and the user tries again
// seen: "FLASH FAILED", "FLASH COMPLETE"
TEST_F(FlashJob, CanBeRepeatedAfterAFailure) {
    expectFailure("sys.exit(2)");
    setTool("");
    runSuccessfulJob();
    expectStatus("FLASH COMPLETE", delegate->accent);
}

TEST_F(FlashJob, LeavesTheFocusWhereItWasBeforeTheJob) {
    for (QWidget* const control : std::initializer_list<QWidget*>{
             delegate->portPopup, delegate->refreshButton, delegate->logTextView, delegate->flashButton}) {
        for (const char* const tool : {"sys.exit(1)", ""}) {
            setTool(tool);
            control->setFocus();
            const AlertAnswer confirmation(click("ERASE + FLASH"));
            // As an assistive tool does it: a click of the mouse would take the focus.
            delegate->flashButton->click();
            std::optional<AlertAnswer> done;
            if (*tool == '\0') done.emplace(click("Done"));
            ASSERT_TRUE(waitUntil([&] { return !delegate->flashProcess && (!done || done->hasEnded()); }));
            EXPECT_EQ(delegate->window->focusWidget(), control) << control->accessibleName().toStdString();
        }
    }
}

TEST_F(FlashJob, CanBeRepeatedWithTheSpaceBarAndWithReturnAfterAFailure) {
    delegate->flashButton->setFocus();
    for (const Qt::Key key : {Qt::Key_Space, Qt::Key_Return, Qt::Key_Space}) {
        setTool("sys.exit(1)");
        {
            const AlertAnswer confirmation(click("ERASE + FLASH"));
            QTest::keyClick(delegate->window->windowHandle(), key);
        }
        ASSERT_TRUE(waitForEndOfJob());
        expectStatus("FLASH FAILED", delegate->danger);
    }
}

// fault: the tool cannot be launched, and the user tries again with the keyboard
TEST_F(FlashJob, LeavesTheFocusWhereItWasWhenItCouldNotStart) {
    const FileDescriptor claim = claimPort(port.path());
    delegate->flashButton->setFocus();
    const AlertAnswer confirmation(click("ERASE + FLASH"));
    const AlertAnswer error(click("OK"));
    pressFlash();
    EXPECT_EQ(delegate->window->focusWidget(), delegate->flashButton);
}

TEST_F(FlashJob, IsStartedByTheReturnKeyInItsConfirmation) {
    setTool("sys.exit(1)");
    {
        const AlertAnswer confirmation(pressKey(Qt::Key_Return));
        pressFlash();
    }
    EXPECT_NE(delegate->flashProcess, nullptr);
    EXPECT_TRUE(waitForEndOfJob());
}

TEST_F(FlashJob, HandsTheValidatedReleaseToTheToolWithTheEraseOption) {
    EXPECT_EQ(argumentsOfSuccessfulJob(), argumentsWith("--erase-all\n"));
}

TEST_F(FlashJob, LeavesTheEraseOptionOutWhenTheManifestSaysSo) {
    release.manifest.set("flash.eraseAllInternalFlash", "false");
    writeRelease();
    pressRefresh();
    EXPECT_EQ(argumentsOfSuccessfulJob(), argumentsWith(""));
}

TEST_F(FlashJob, KeepsTheValidatedFlashOptionsWhenOnlyTheManifestsOptionsChange) {
    release.manifest.set("flash.eraseAllInternalFlash", "false");
    release.manifest.set("flash.baud", "115200");
    release.manifest.set("version", R"("9.9.9")");
    writeRelease();
    EXPECT_EQ(argumentsOfSuccessfulJob(), argumentsWith("--erase-all\n"));
}

TEST_F(FlashJob, WorksOnTheChosenPort) {
    const BootPort second("cu.usbmodem102");
    pressRefresh();
    delegate->portPopup->setCurrentIndex(1);
    // The menu shows the port; which one it is, the list of ports says.
    delegate->portPopup->setItemText(1, QStringLiteral("/dev/cu.usbmodem103"));
    EXPECT_THAT(argumentsOfSuccessfulJob(), HasSubstr("\n--port\n/dev/cu.usbmodem102\n"));
}

// fault: port and release are lost while the user is asked
TEST_F(FlashJob, WorksOnTheReleaseAndThePortOfThePressWhateverHappensBehindTheConfirmation) {
    letToolWriteDownItsArguments();
    const AlertAction loseEverything = [this](QMessageBox&) {
        std::filesystem::remove(port.path());
        release.manifest.set("schemaVersion", "2");
        writeRelease();
        delegate->refreshBuildAndPorts();
        EXPECT_FALSE(delegate->resources.has_value());
        release.manifest.set("schemaVersion", "1");
        release.manifest.set("version", R"("2.0.0")");
        writeRelease();
        delegate->refreshBuildAndPorts();
        EXPECT_EQ(delegate->resources->manifest.version, "2.0.0");
    };
    {
        const AlertAnswer confirmation(inOrder(loseEverything, click("ERASE + FLASH")));
        pressFlash();
    }
    const AlertAnswer done(click("Done"));
    ASSERT_TRUE(waitUntil([&done] { return done.hasEnded(); }));
    EXPECT_EQ(readTestFile(argumentsFile()), argumentsWith("--erase-all\n"));
    EXPECT_THAT(done.alert().informativeText, testing::StartsWith("1.0.0 was written"));
}

TEST_F(FlashJob, LeavesTheListOfPortsAloneAfterAnyOutcome) {
    const BootPort later("cu.usbmodem102");
    expectFailure("sys.exit(1)");
    EXPECT_THAT(delegate->ports, ElementsAre(port.path()));
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre(port.path()));
    setTool("");
    runSuccessfulJob();
    EXPECT_THAT(delegate->ports, ElementsAre(port.path()));
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre(port.path()));
}

// fault: the tool cannot be launched
// seen: "FLASHER COULD NOT START", "Argument list too long"
TEST_F(FlashJob, SaysThatItCouldNotStartAndCanBeStartedAgain) {
    takeLog();
    {
        // No environment may hold so long a value; the system refuses to start anything with it.
        const ScopedEnvironment tooLong("QELMO_TEST_TOO_LONG", std::string(200'000, 'x'));
        delegate->environment = processEnvironment();
        const AlertAnswer confirmation(click("ERASE + FLASH"));
        // The start line comes before the launch.
        const AlertAnswer error(
            inOrder([this](QMessageBox&) { EXPECT_EQ(takeLog(), startLine); }, click("OK")));
        pressFlash();
        EXPECT_EQ(error.alert().messageText, "QELMO Flasher stopped");
        EXPECT_THAT(
            error.alert().informativeText,
            testing::AllOf(HasSubstr("/usr/bin/python3"), testing::EndsWith(": Argument list too long")));
        EXPECT_EQ(error.alert().icon, QMessageBox::Critical);
    }
    expectStatus("FLASHER COULD NOT START", delegate->danger);
    expectControlsEnabled();
    EXPECT_EQ(takeLog(), "");

    delegate->environment = processEnvironment();
    setTool("");
    runSuccessfulJob();
    EXPECT_EQ(takeLog(), std::string(startLine) + completeLine);
}

// fault: a tool of another window, which may be gone, still uses the port
// seen: "FLASHER COULD NOT START", "QELMO Flasher stopped", "An earlier flash job is still running on
//     /dev/cu.usbmodem101; it ends by itself, and then the port is free again."
TEST_F(FlashJob, IsRefusedWhileAnEarlierOneStillUsesThePort) {
    setTool("");
    takeLog();
    {
        const FileDescriptor claim = claimPort(port.path());
        const AlertAnswer confirmation(click("ERASE + FLASH"));
        const AlertAnswer error(click("OK"));
        pressFlash();
        EXPECT_EQ(error.alert().messageText, "QELMO Flasher stopped");
        EXPECT_EQ(
            error.alert().informativeText,
            "An earlier flash job is still running on /dev/cu.usbmodem101; it ends by itself, and then the "
            "port is free again.");
    }
    expectStatus("FLASHER COULD NOT START", delegate->danger);
    expectControlsEnabled();
    EXPECT_EQ(takeLog(), startLine);
    runSuccessfulJob();
    EXPECT_EQ(takeLog(), std::string(startLine) + completeLine);
    runSuccessfulJob();
}

TEST_F(FlashJob, HandsTheEnvironmentOfTheStartToTheTool) {
    delegate->environment = {"A=1", "DESKTOP_STARTUP_ID=launcher", "PYTHONUNBUFFERED=0"};
    setTool("open('" + argumentsFile() + "', 'w').write(open('/proc/self/environ').read())");
    runSuccessfulJob();
    EXPECT_EQ(readTestFile(argumentsFile()), "A=1\0DESKTOP_STARTUP_ID=launcher\0PYTHONUNBUFFERED=1\0"s);
}

// fault: the window is gone when the tool ends
TEST_F(FlashJob, EndsWithoutATraceWhenTheDelegateIsGone) {
    const Fifo gate;
    setTool("open('" + gate.path() + "').read()\nprint('late words')");
    startJob();
    std::weak_ptr<ChildProcess> process = delegate->flashProcess;
    const std::weak_ptr<AppDelegate> gone = delegate;
    delegate.reset();
    EXPECT_TRUE(gone.expired());
    gate.open();
    EXPECT_TRUE(waitUntil([&process] { return process.expired(); }));
    settle();
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
}

TEST_F(FlashJob, ShowsTheVersionInItsAlertsAsItStands) {
    release.manifest.set("version", R"("<b>1</b> & 2")");
    writeRelease();
    pressRefresh();
    setTool("");
    const AlertAnswer confirmation(click("ERASE + FLASH"));
    pressFlash();
    const AlertAnswer done(click("Done"));
    ASSERT_TRUE(waitUntil([&done] { return done.hasEnded(); }));
    EXPECT_EQ(confirmation.alert().messageText, "Erase internal flash and install <b>1</b> & 2?");
    EXPECT_THAT(done.alert().informativeText, testing::StartsWith("<b>1</b> & 2 was written"));
}

}  // namespace

}  // namespace qelmo
