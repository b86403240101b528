#include <QApplication>
#include <QComboBox>
#include <QTest>
#include <filesystem>
#include <optional>

#include "tests/support/Fifo.h"
#include "tests/ui/AlertAnswer.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/LogTextView.h"

namespace qelmo {

namespace {

using namespace std::string_literals;
using testing::ElementsAre;

const std::string failedLine = "\nFLASH FAILED — keep USB connected, return to G0 boot mode, and retry.\n";
const std::string completeLine = "\nFLASH COMPLETE — verified and reset. SD card was not accessed.\n";

class FlashJob : public ReadyWindowTest {
protected:
    FlashJob() { takeLog(); }

    const std::string startLine = "\nStarting verified full-image flash on " + port + "…\n";

    /// Collects the log until it ends with `end`.
    std::string logUntil(const std::string& end) {
        std::string log;
        EXPECT_TRUE(waitUntil([&] { return (log += takeLog()).ends_with(end); })) << log;
        return log;
    }

    /// Presses and confirms, and answers the error alert that follows; returns its text.
    std::string errorOfPress() {
        const AlertAnswer confirmation(click("ERASE + FLASH"));
        const AlertAnswer error(click("OK"));
        pressFlash();
        EXPECT_EQ(error.alert().messageText, "QELMO Flasher stopped");
        EXPECT_EQ(error.alert().icon, QMessageBox::Critical);
        EXPECT_THAT(error.alert().buttons, ElementsAre("OK"));
        return error.alert().informativeText;
    }

    void expectRecovery() {
        setTool("");
        runSuccessfulJob();
        EXPECT_EQ(takeLog(), startLine + completeLine);
    }
};

// fault: the tool prints NUL, ESC, a lone surrogate and a character without its end
TEST_F(FlashJob, ShowsTheToolsOutputWhileItRunsWhateverItsBytes) {
    const Fifo gate;
    setTool(
        "os.write(1, b'Writing at 0x00010000... (12 %)\\r')\n"
        "os.write(2, b'a\\0b\\x1b[31mc\\xed\\xa0\\x80d\\xe2\\x82')\nopen('" +
        gate.path() + "').read()\nsys.exit(1)");
    startJob();
    expectShown("FLASHING — DO NOT DISCONNECT");
    EXPECT_EQ(logUntil("d\uFFFD"),
              startLine + "Writing at 0x00010000... (12 %)\n" + "a\0b\033[31mc\uFFFD\uFFFD\uFFFDd\uFFFD"s);
    gate.open();
    ASSERT_TRUE(waitForEndOfJob());
    EXPECT_EQ(takeLog(), failedLine);
}

TEST_F(FlashJob, ReportsSuccessInTheStatusThenTheLogThenAnAlert) {
    const Fifo gate;
    setTool("print('Hash of data verified.')\nopen('" + gate.path() + "').read()");
    startJob();
    std::string log = logUntil("verified.\n");
    const AlertAnswer done(inOrder(
        [&](QMessageBox&) {
            expectShown("FLASH COMPLETE");
            log += takeLog();
        },
        click("Done")));
    gate.open();
    ASSERT_TRUE(waitUntil([&done] { return done.hasEnded(); }));
    EXPECT_EQ(log, startLine + "Hash of data verified.\n" + completeLine);
    EXPECT_EQ(done.alert().messageText, "QELMO Varnox is installed");
    EXPECT_EQ(
        done.alert().informativeText,
        "1.0.0 was written and verified. If the Cardputer remains in boot mode, power-cycle it normally "
        "without holding G0.");
    EXPECT_EQ(done.alert().icon, QMessageBox::Information);
    EXPECT_THAT(done.alert().buttons, ElementsAre("Done"));
    EXPECT_EQ(takeLog(), "");
}

// fault: the tool ends with a status other than 0, or by a signal, and the user tries again
// seen: "FLASH FAILED", "FLASH COMPLETE"
TEST_F(FlashJob, FailsWithoutAnAlertHoweverTheToolEndsBadlyAndCanBeRepeated) {
    for (const char* const end : {"sys.exit(1)", "sys.exit(255)", "os.kill(os.getpid(), signal.SIGTERM)",
                                  "os.kill(os.getpid(), signal.SIGKILL)"}) {
        setTool(end);
        startJob();
        ASSERT_TRUE(waitForEndOfJob());
        expectShown("FLASH FAILED");
        EXPECT_EQ(takeLog(), startLine + failedLine);
    }
    expectRecovery();
}

TEST_F(FlashJob, LeavesTheFocusWhereItWasBeforeTheJob) {
    setTool("sys.exit(1)");
    for (QWidget* const control : std::initializer_list<QWidget*>{
             delegate->portPopup, delegate->refreshButton, delegate->logTextView, delegate->flashButton}) {
        control->setFocus();
        const AlertAnswer confirmation(click("ERASE + FLASH"));
        // As an assistive tool does it: a click of the mouse would take the focus.
        delegate->flashButton->click();
        ASSERT_TRUE(waitForEndOfJob());
        EXPECT_EQ(delegate->window->focusWidget(), control) << control->accessibleName().toStdString();
    }
}

// fault: port and release are lost while the user is asked
TEST_F(FlashJob, WorksOnTheReleaseAndThePortOfThePressWhateverHappensBehindTheConfirmation) {
    // Its arguments, one a line and without its own path.
    const std::string argumentsFile = release.home() + "/arguments";
    setTool("open('" + argumentsFile + "', 'w').write('\\n'.join(sys.argv[1:]))");
    const AlertAction loseEverything = [this](QMessageBox&) {
        unplug("cu.usbmodem101");
        change("schemaVersion", "2");
        delegate->refreshBuildAndPorts();
        EXPECT_FALSE(delegate->resources.has_value());
        release.manifest.set("schemaVersion", "1");
        change("version", R"("2.0.0")");
        delegate->refreshBuildAndPorts();
        EXPECT_EQ(delegate->resources->manifest.version, "2.0.0");
    };
    {
        const AlertAnswer confirmation(inOrder(loseEverything, click("ERASE + FLASH")));
        pressFlash();
    }
    const AlertAnswer done(click("Done"));
    ASSERT_TRUE(waitUntil([&done] { return done.hasEnded(); }));
    EXPECT_EQ(readTestFile(argumentsFile),
              "--chip\nesp32s3\n--port\n" + port +
                  "\n--baud\n921600\n--before\ndefault_reset\n--after\nhard_reset\nwrite_flash\n--erase-all\n"
                  "--flash_mode\ndio\n--flash_freq\n80m\n--flash_size\n8MB\n--verify\n0x0\n" +
                  release.image());
    EXPECT_THAT(done.alert().informativeText, testing::StartsWith("1.0.0 was written"));
}

// fault: the interpreter is missing, and there again at the next press
// seen: "FLASHER COULD NOT START", "No such file or directory"
TEST_F(FlashJob, SaysThatItCouldNotStartAndCanBeStartedAgain) {
    context.interpreter = release.home() + "/python3";
    replaceDelegate();
    launch();
    takeLog();
    delegate->flashButton->setFocus();
    EXPECT_EQ(errorOfPress(), "start " + context.interpreter + ": No such file or directory");
    expectShown("FLASHER COULD NOT START");
    EXPECT_EQ(delegate->window->focusWidget(), delegate->flashButton);
    EXPECT_EQ(takeLog(), startLine);
    std::filesystem::create_symlink("/usr/bin/python3", context.interpreter);
    expectRecovery();
}

// fault: the window is gone when the tool ends
TEST_F(FlashJob, EndsWithoutATraceWhenTheDelegateIsGone) {
    const Fifo gate;
    setTool("open('" + gate.path() + "').read()\nprint('late words')");
    startJob();
    const std::weak_ptr<ChildProcess> process = delegate->flashProcess;
    const std::weak_ptr<AppDelegate> gone = delegate;
    delegate.reset();
    EXPECT_TRUE(gone.expired());
    gate.open();
    EXPECT_TRUE(waitUntil([&process] { return process.expired(); }));
    settle();
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
}

}  // namespace

}  // namespace qelmo
