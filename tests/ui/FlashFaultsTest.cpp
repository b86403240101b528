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
// seen: "FLASH FAILED"
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
// seen: "NOT READY", "open …: Too many open files"
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
// seen: "QELMO Flasher stopped", "open …: Too many open files"
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
// seen: "FLASHER COULD NOT START", "Too many open files"
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
// seen: "NOT READY", "read …: Cannot allocate memory"
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
// seen: "WAITING FOR G0 BOOT PORT", "No ESP32-S3 boot port found"
TEST_F(FlashFaults, AnUnreadableDevIsAnEmptyOne) {
    takeLog();
    {
        const UnreadableDev dev;
        if (!dev.inForce) GTEST_SKIP() << "needs the right to become another user";
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
