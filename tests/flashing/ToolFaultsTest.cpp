#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>

#include "flashing/FlashCommand.h"
#include "platform/AtomicWrite.h"
#include "tests/flashing/ToolJob.h"
#include "tests/support/Fifo.h"
#include "tests/support/ProcessMemory.h"
#include "tests/support/ProcessResources.h"
#include "tests/support/ReleaseFixture.h"

namespace qelmo {
namespace {

using namespace std::string_literals;

// fault: the tool is killed by SIGTERM, SIGKILL or SIGSEGV
TEST(ToolFaults, ADeathBySignalIsNoSuccess) {
    for (const int signal : {SIGTERM, SIGKILL, SIGSEGV})
        EXPECT_EQ(ToolJob("/bin/sh", {"-c", "ulimit -c 0; kill -" + std::to_string(signal) + " $$"}).run(),
                  signal);
}

// fault: the tool closes its output streams and goes on
TEST(ToolFaults, ClosedStreamsAreNotTheEndOfTheTool) {
    const Fifo gate;
    ToolJob job("/bin/sh", {"-c", "echo so far; exec >&- 2>&-; read line <\"$0\"; exit 4", gate.path()});
    ASSERT_EQ(job.launch(), "");
    EXPECT_TRUE(job.waitForText("so far\n"));
    EXPECT_TRUE(job.waitForThreads(1)) << "the reader still waits";
    EXPECT_EQ(job.status, std::nullopt);
    gate.open();
    EXPECT_TRUE(job.waitForEnd());
    EXPECT_EQ(job.status, 4);
}

#ifdef QELMO_SANITIZED
constexpr std::size_t growthLimitBytes = 1U << 30;  // a sanitizer keeps what was freed for a while
#else
constexpr std::size_t growthLimitBytes = 8U << 20;
#endif

// fault: the tool prints 100 MB without one line feed
TEST(ToolFaults, AFloodOfOutputIsReadWholeInBoundedMemory) {
    constexpr std::size_t blocks = 1600;
    const Fifo gate;
    ToolJob job(pythonPath, {"-c",
                             "import os, sys\n"
                             "for _ in range(int(sys.argv[1])): os.write(1, b'x' * 65536)\n"
                             "open(sys.argv[2]).read()",
                             std::to_string(blocks), gate.path()});
    std::atomic<std::size_t> count = 0;
    std::atomic<std::size_t> peak = 0;
    job.onText = [&](const std::string& text) {
        peak = std::max<std::size_t>(peak, residentBytes());
        // Compared at once: one character after the other takes most of a minute under emulation.
        if (text == std::string(text.size(), 'x')) count += text.size();
    };
    const std::size_t before = residentBytes();
    ASSERT_EQ(job.launch(), "");
    EXPECT_TRUE(eventually([&] { return count == blocks * 65536; })) << count;
    EXPECT_LT(peak, before + growthLimitBytes);
    gate.open();
    EXPECT_TRUE(job.waitForEnd());
    EXPECT_EQ(job.status, 0);
}

// fault: the tool prints NUL, ESC, a lone surrogate and a character without its end
TEST(ToolFaults, BytesThatAreNoTextDoNotStopTheStream) {
    const Fifo gate;
    ToolJob job("/bin/sh", {"-c", R"(printf 'a\0b\033[31mc\355\240\200d\342\202'; read line <"$0"; exit 0)",
                            gate.path()});
    ASSERT_EQ(job.launch(), "");
    EXPECT_TRUE(job.waitForText("a\0b\033[31mc\uFFFD\uFFFD\uFFFDd\uFFFD"s));
    gate.open();
    EXPECT_TRUE(job.waitForEnd());
    EXPECT_EQ(job.status, 0);
}

// fault: the tool ends without having waited for a child of its own
TEST(ToolFaults, AZombieOfTheToolIsNotTheProgramsOwn) {
    ToolJob job(pythonPath, {"-c",
                             "import os\n"
                             "child = os.fork() or os._exit(9)\n"
                             "os.waitid(os.P_PID, child, os.WEXITED | os.WNOWAIT)\n"
                             "os._exit(3)"});
    EXPECT_EQ(job.run(), 3);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

// fault: a process that the tool left behind ignores SIGPIPE and keeps writing
TEST(ToolFaults, AGrandchildThatWritesOnLosesThePipeWithTheJob) {
    const TemporaryFolder folder;
    const std::string ended = folder / "ended";
    ToolJob job(pythonPath, {"-c",
                             "import os, sys\n"
                             "if os.fork(): os._exit(5)\n"
                             "try:\n"
                             "    while True: os.write(1, b'x')\n"
                             "except BrokenPipeError:\n"
                             "    open(sys.argv[1], 'w')\n",
                             ended});
    EXPECT_EQ(job.run(), 5);
    EXPECT_FALSE(std::filesystem::exists(ended));
    job.release();
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(ended); }));
}

// fault: no descriptor is left, or too few, when the tool is started
// seen: "start /bin/true: Too many open files"
TEST(ToolFaults, TooFewDescriptorsAreAReasonNotToStart) {
    for (std::size_t left = 0; left <= 4; ++left) {
        ToolJob job("/bin/true");
        const std::string refusal = job.launch(left);
        EXPECT_EQ(refusal, left < 4 ? "start /bin/true: Too many open files" : "") << left;
        ASSERT_TRUE(!refusal.empty() || job.waitForEnd());
    }
}

/// Until the end of the scope a signal interrupts this process every millisecond, and no call goes on by
/// itself.
class Interruptions {
public:
    Interruptions() {
        count = 0;
        struct sigaction counting {};
        counting.sa_handler = [](int) { ++count; };
        EXPECT_EQ(::sigaction(SIGALRM, &counting, nullptr), 0);
        const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
        EXPECT_EQ(::setitimer(ITIMER_REAL, &everyMillisecond, nullptr), 0);
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;
    ~Interruptions() {
        const itimerval never{};
        ::setitimer(ITIMER_REAL, &never, nullptr);
        std::signal(SIGALRM, SIG_IGN);  // drops one that still waits
        std::signal(SIGALRM, SIG_DFL);
    }

    static inline std::atomic<int> count = 0;
};

// fault: signals interrupt the program all the time
TEST(Interrupted, TheMainThreadReadsWaitsAndWritesAsEver) {
    const ReleaseFixture fixture;
    const std::string digest = fixture.load().checksum;
    const std::string copy = fixture.home() + "/copy";
    const Interruptions interruptions;
    while (Interruptions::count < 20) {
        EXPECT_EQ(FlasherResources::load(fixture.bundle()).checksum, digest);
        writeFileAtomically(copy, bytesOf(digest), Durability::flushedToDisk);
    }
    const int before = Interruptions::count;
    const auto child = ChildProcess::create(pythonPath, {"-c", "print('text'); raise SystemExit(6)"});
    child->launch();
    child->waitUntilExit();
    EXPECT_EQ(child->readToEndOfOutput(), "text\n");
    EXPECT_EQ(child->terminationStatus(), 6);
    EXPECT_GT(Interruptions::count, before);
    EXPECT_EQ(readTestFile(copy), digest);
}

// fault: signals interrupt the threads of a running job all the time
TEST(Interrupted, TheReaderAndTheWaiterGoOn) {
    const Fifo gate;
    ToolJob job("/bin/sh", {"-c",
                            "echo first; read line <\"$0\"\n"
                            "echo second; exec >&- 2>&-; read line <\"$0\"; exit 7",
                            gate.path()});
    sigset_t alarm;
    sigset_t before;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    ASSERT_EQ(job.launch(), "");
    // From here on only the two threads of the job are left to take the signal.
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &alarm, &before), 0);
    {
        const Interruptions interruptions;
        EXPECT_TRUE(job.waitForText("first\n"));
        EXPECT_TRUE(eventually([] { return Interruptions::count > 40; }));
        gate.open();
        EXPECT_TRUE(job.waitForText("first\nsecond\n"));
        ASSERT_TRUE(job.waitForThreads(1)) << "the reader goes on";
        Interruptions::count = 0;
        EXPECT_TRUE(eventually([] { return Interruptions::count > 40; })) << "on the waiter";
        gate.open();
        EXPECT_TRUE(job.waitForEnd());
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(job.status, 7);
}

// fault: the program stays open for a day of flashing
TEST(ThousandJobs, LeaveNothingBehind) {
    const auto before = ProcessResources::now();
    std::size_t inUse = 0;
    for (int job = 1; job <= 1000; ++job) {
        ASSERT_EQ(ToolJob("/bin/true").run(), 0) << job;
        if (job == 200) inUse = heapBytesInUse();
    }
    EXPECT_TRUE(before.areBack());
    EXPECT_LT(heapBytesInUse(), inUse + 65536);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

}  // namespace
}  // namespace qelmo
