#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QComboBox>
#include <QDeadlineTimer>
#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "platform/MainBundle.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Fifo.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;

constexpr const char* startLine = "\nStarting verified full-image flash on /dev/cu.usbmodem101…\n";
constexpr const char* failedLine =
    "\nFLASH FAILED — keep USB connected, return to G0 boot mode, and retry.\n";

class FlashFaults : public ReadyWindowTest {
protected:
    void expectStatus(const std::string& text, const QColor& colour) const {
        EXPECT_EQ(textOf(delegate->statusLabel), text);
        EXPECT_EQ(hex(delegate->statusLabel->colour()), hex(colour));
    }

    /// By the name under which the program finds it.
    static std::string resource(const std::string& name) {
        return resourceFolder(MainBundle::bundleURL()) + "/" + name;
    }

    /// Runs a tool that does not end well; returns what the job has written to the log.
    std::string logOfFailedJob(const std::string& tool) {
        setTool(tool);
        takeLog();
        startJob();
        EXPECT_TRUE(waitForEndOfJob());
        expectStatus("FLASH FAILED", delegate->danger);
        return takeLog();
    }

    /// Presses refresh and expects that the release is refused for this reason, and nothing else.
    void expectRefusalByRefresh(const std::string& reason) {
        pressRefresh();
        expectStatus("NOT READY", delegate->danger);
        EXPECT_EQ(textOf(delegate->releaseLabel), "RELEASE VALIDATION FAILED\n" + reason);
        EXPECT_EQ(takeLog(), "STOP: " + reason + "\n");
        EXPECT_FALSE(delegate->flashButton->isEnabled());
    }

    void expectRecovery() {
        pressRefresh();
        expectStatus("READY", delegate->accent);
        setTool("");
        runSuccessfulJob();
        expectStatus("FLASH COMPLETE", delegate->accent);
    }
};

// fault: the tool is killed by SIGTERM, SIGKILL or SIGSEGV
// injected: a real child sends itself the signal
// seen: "FLASH FAILED" in danger; the failure line ends the log; no alert
// kept: the release and the port list; the next press starts a new job
TEST_F(FlashFaults, AToolKilledByAnySignalHasFailed) {
    for (const int signal : {SIGTERM, SIGKILL, SIGSEGV})
        EXPECT_EQ(logOfFailedJob("import resource\nresource.setrlimit(resource.RLIMIT_CORE, (0, 0))\n"
                                 "os.kill(os.getpid(), " +
                                 std::to_string(signal) + ")"),
                  std::string(startLine) + failedLine);
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre(port.path()));
    expectRecovery();
}

// fault: the tool prints NUL, ESC, a lone surrogate and a character without its end
// injected: a real child writes the bytes
// seen: U+FFFD for each byte of the surrogate and for the broken character, in the log
// kept: the text around them, and the lines that follow
TEST_F(FlashFaults, BytesThatAreNoTextAreShownAndTheLogGoesOn) {
    const Fifo gate;
    setTool("os.write(1, b'a\\0b\\x1b[31mc\\xed\\xa0\\x80d\\xe2\\x82')\nopen('" + gate.path() +
            "').read()\nsys.exit(1)");
    takeLog();
    std::string log;
    startJob();
    EXPECT_TRUE(waitUntil([&] {
        log += takeLog();
        return log.ends_with("d\uFFFD");
    }));
    EXPECT_EQ(log, startLine + "a\0b\033[31mc\uFFFD\uFFFD\uFFFDd\uFFFD"s);
    gate.open();
    EXPECT_TRUE(waitForEndOfJob());
    EXPECT_EQ(takeLog(), failedLine);
}

// fault: the tool prints one line of 256 KB and never ends it
// injected: a real child writes it
// seen: the whole line in the log while the tool still runs
// kept: the window, which goes on answering, and the end of the job
TEST_F(FlashFaults, AnEndlessLineIsShownWhole) {
    constexpr std::size_t length = 1 << 18;
    const Fifo gate;
    setTool("os.write(1, b'x' * " + std::to_string(length) + ")\nopen('" + gate.path() +
            "').read()\nsys.exit(1)");
    takeLog();
    std::size_t shown = 0;
    startJob();
    EXPECT_TRUE(waitUntil([&] {
        const std::string more = takeLog();
        shown += static_cast<std::size_t>(std::count(more.begin(), more.end(), 'x'));
        return shown == length;
    })) << shown;
    gate.open();
    EXPECT_TRUE(waitForEndOfJob());
    EXPECT_EQ(takeLog(), failedLine);
}

// fault: no descriptor is left when the user refreshes
// injected: RLIMIT_NOFILE in the running window
// seen: "NOT READY" in danger, and "open …: Too many open files" in the panel and the log
// kept: the window; the next refresh finds the release again, and a job runs
TEST_F(FlashFaults, ARefreshWithoutADescriptorSaysSo) {
    takeLog();
    {
        const DescriptorLimit limit(0);
        expectRefusalByRefresh("open " + resource("qelmo-varnox-flash-manifest.json") +
                               ": Too many open files");
    }
    expectRecovery();
}

// fault: no descriptor is left when the user presses the flash button
// injected: RLIMIT_NOFILE in the running window
// seen: the alert "QELMO Flasher stopped" with "open …: Too many open files"
// kept: status, release and ports; nothing is asked or written; the next press runs a job
TEST_F(FlashFaults, APressWithoutADescriptorSaysSo) {
    takeLog();
    {
        const DescriptorLimit limit(0);
        const AlertAnswer error(click("OK"));
        pressFlash();
        EXPECT_EQ(error.alert().messageText, "QELMO Flasher stopped");
        EXPECT_EQ(error.alert().informativeText,
                  "open " + resource("qelmo-varnox-flash-manifest.json") + ": Too many open files");
        expectStatus("READY", delegate->accent);
        EXPECT_EQ(takeLog(), "");
    }
    expectRecovery();
}

// fault: the descriptors suffice to validate the release, but not to start the tool
// injected: RLIMIT_NOFILE leaves one free
// seen: "FLASHER COULD NOT START" in danger; the alert names the interpreter and "Too many open files"
// kept: the release and the ports; all controls are enabled; the next press runs a job
TEST_F(FlashFaults, APressWithOneDescriptorCannotStartTheTool) {
    takeLog();
    {
        const DescriptorLimit limit(1);
        const AlertAnswer confirmation(click("ERASE + FLASH"));
        const AlertAnswer error(click("OK"));
        pressFlash();
        EXPECT_EQ(error.alert().informativeText, "start /usr/bin/python3: Too many open files");
        expectStatus("FLASHER COULD NOT START", delegate->danger);
        EXPECT_EQ(takeLog(), startLine);
        EXPECT_EQ(delegate->flashProcess, nullptr);
        EXPECT_TRUE(delegate->flashButton->isEnabled());
    }
    expectRecovery();
}

/// Until the end of the scope this process can have little more memory than it has.
class MemoryLimit {
public:
    MemoryLimit() {
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        EXPECT_EQ(::getrlimit(RLIMIT_AS, &before_), 0);
        const rlim_t more = 64U << 20;
        const rlimit lower{pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + more, before_.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_AS, &lower), 0);
    }
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;
    ~MemoryLimit() { ::setrlimit(RLIMIT_AS, &before_); }

private:
    rlimit before_{};
};

// fault: there is no memory for the image
// injected: RLIMIT_AS in the running window leaves 64 MB for an image of 200 MB
// seen: "NOT READY" in danger, and "read …: Cannot allocate memory" in the panel and the log
// kept: the window; with an image that fits the next refresh finds the release again
TEST_F(FlashFaults, AnImageThatDoesNotFitIntoMemoryIsRefused) {
    takeLog();
    release.manifest.set("binary.size", std::to_string(200U << 20));
    writeRelease();
    std::filesystem::resize_file(release.image(), 200U << 20);
    {
        const MemoryLimit limit;
        expectRefusalByRefresh("read " + resource("release-complete.bin") + ": Cannot allocate memory");
    }
    release.setImage(ReleaseFixture::smallestImage());
    writeRelease();
    expectRecovery();
}

/// Until the end of the scope this process may not look into /dev.
class UnreadableDev {
public:
    UnreadableDev() {
        constexpr uid_t nobody = 65534;
        // Root may look everywhere; the saved user leads back.
        inForce = ::chmod("/dev", 0711) == 0 && (::geteuid() != 0 || ::seteuid(nobody) == 0);
    }
    UnreadableDev(const UnreadableDev&) = delete;
    UnreadableDev& operator=(const UnreadableDev&) = delete;
    ~UnreadableDev() {
        if (::seteuid(::getuid()) != 0 || ::chmod("/dev", 0755) != 0) std::abort();
    }

    bool inForce;
};

// fault: /dev cannot be read
// injected: no user but root may list the private /dev, and the window's user is another
// seen: "WAITING FOR G0 BOOT PORT" in warning, "No ESP32-S3 boot port found" and the line
//     that says what to do
// kept: the release; no alert; the next refresh finds the port
TEST_F(FlashFaults, AnUnreadableDevIsAnEmptyOne) {
    takeLog();
    {
        const UnreadableDev dev;
        if (!dev.inForce) GTEST_SKIP() << "this user cannot become another";
        pressRefresh();
        expectStatus("WAITING FOR G0 BOOT PORT", delegate->warning);
        EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre("No ESP32-S3 boot port found"));
        EXPECT_FALSE(delegate->portPopup->isEnabled());
        EXPECT_FALSE(delegate->flashButton->isEnabled());
        EXPECT_TRUE(delegate->resources.has_value());
        EXPECT_THAT(takeLog(),
                    EndsWith("No boot port found. Put the Cardputer ADV into G0 boot mode, connect USB, "
                             "then press REFRESH BUILD.\n"));
    }
    expectRecovery();
}

// fault: ports come and go while /dev is scanned
// injected: a thread makes and removes two nodes as fast as it can during 500 scans or more, until one was seen
//     with and one without a node
// seen: each time a list in order, with the port that stays
// kept: the menu, which always shows the list; afterwards the port that stays is alone
TEST_F(FlashFaults, PortsThatComeAndGoDuringAScanNeverBreakTheList) {
    std::atomic<bool> done = false;
    std::thread plugging([&done] {
        while (!done) {
            const BootPort before("cu.SLAB_USBtoUART");
            const BootPort after("cu.wchusbserial110");
        }
    });
    const QDeadlineTimer limit(waitingLimit);
    std::set<std::size_t> sizes;
    for (int scan = 0; scan < 500 || (sizes.size() < 2 && !limit.hasExpired()); ++scan) {
        delegate->refreshPorts();
        EXPECT_THAT(delegate->ports, Contains(port.path()).Times(1));
        EXPECT_TRUE(std::is_sorted(delegate->ports.begin(), delegate->ports.end()));
        EXPECT_EQ(itemsOf(delegate->portPopup), delegate->ports);
        sizes.insert(delegate->ports.size());
    }
    done = true;
    plugging.join();
    EXPECT_GE(sizes.size(), 2U) << "no port came or went";
    delegate->refreshPorts();
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre(port.path()));
}

}  // namespace

}  // namespace qelmo
