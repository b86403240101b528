#include "platform/ChildProcess.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <tuple>

#include "platform/Spawn.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Fifo.h"
#include "tests/support/OrdinaryUser.h"
#include "tests/support/ProcessResources.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

using namespace std::string_literals;
using Arguments = std::vector<std::string>;
using testing::ElementsAre;

constexpr const char* python = "/usr/bin/python3";
constexpr const char* shell = "/bin/sh";

/// A child whose output is kept and whose exit can be waited for. Leaves no thread and no descriptor open.
class SupervisedRun {
public:
    explicit SupervisedRun(std::string executable, Arguments arguments = {})
        : process(ChildProcess::create(std::move(executable), std::move(arguments))) {
        process->setOutputHandler([this](std::string_view bytes) { onChunk(bytes); });
        process->setTerminationHandler([this](const std::shared_ptr<ChildProcess>& ended) {
            const std::lock_guard lock(mutex_);
            EXPECT_EQ(ended, process);
            ++exits;
            exited.happen();
        });
    }
    SupervisedRun(const SupervisedRun&) = delete;
    SupervisedRun& operator=(const SupervisedRun&) = delete;
    /// The handlers refer to this object, so their threads must have ended first.
    ~SupervisedRun() {
        process->clearOutputHandler();
        EXPECT_TRUE(waitForThreads()) << "a thread was left behind";
        process.reset();
        EXPECT_TRUE(before_.areBack()) << "a descriptor was left behind";
    }

    void keep(std::string_view bytes) {
        const std::lock_guard lock(mutex_);
        chunks_.emplace_back(bytes);
    }
    [[nodiscard]] std::vector<std::string> chunks() {
        const std::lock_guard lock(mutex_);
        return chunks_;
    }
    [[nodiscard]] std::string output() {
        std::string all;
        for (const std::string& chunk : chunks()) all += chunk;
        return all;
    }
    [[nodiscard]] bool waitForOutput(std::string_view expected) {
        return eventually([&] { return output() == expected; });
    }
    /// Waits until no more than `count` of the reader and waiter threads are left.
    [[nodiscard]] bool waitForThreads(std::size_t count = 0) {
        const bool ended =
            eventually([&] { return ProcessResources::now().threads <= before_.threads + count; });
        const std::lock_guard lock(mutex_);  // orders what the threads did before what follows
        return ended;
    }

    std::shared_ptr<ChildProcess> process;
    Event exited;
    std::atomic<int> exits = 0;
    std::function<void(std::string_view bytes)> onChunk = [this](std::string_view bytes) { keep(bytes); };

private:
    const ProcessResources before_ = ProcessResources::now();
    std::mutex mutex_;
    std::vector<std::string> chunks_;
};

TEST(ChildProcess, ReportsOutputAndExitOnceEach) {
    SupervisedRun run(shell, {"-c", "printf text >&2; exit 7"});
    run.process->launch();
    ASSERT_TRUE(run.exited.wait());
    EXPECT_EQ(run.process->terminationStatus(), 7);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "there is still a child";
    ASSERT_TRUE(run.waitForThreads());
    EXPECT_EQ(run.exits, 1);
    EXPECT_THAT(run.chunks(), ElementsAre("text"));
}

TEST(ChildProcess, HasASessionOfItsOwn) {
    const Arguments arguments{"-c", "import os; os.write(1, b'%d' % (os.getsid(0) == os.getpid()))"};
    SupervisedRun run(python, arguments);
    run.process->launch();
    EXPECT_TRUE(run.waitForOutput("1"));
    EXPECT_EQ(runToEnd(python, arguments, ReadOutput::afterExit).output, "0");
}

// fault: the child closes its output streams and keeps running
TEST(ChildProcess, DeliversOutputWhileItStillRunsAndEndsOnlyWhenItExits) {
    const Fifo gate;
    SupervisedRun run(
        shell, {"-c", R"(printf begun; read line <"$0"; printf ' ended'; exec >&- 2>&-; read line <"$0")",
                gate.path()});
    run.process->launch();
    EXPECT_TRUE(run.waitForOutput("begun"));
    gate.open();
    EXPECT_TRUE(run.waitForOutput("begun ended"));
    EXPECT_TRUE(run.waitForThreads(1)) << "the reader still waits";
    EXPECT_EQ(run.exits, 0);
    gate.open();
    EXPECT_TRUE(run.exited.wait());
}

TEST(ChildProcess, DeliversNothingMoreOnceTheOutputHandlerIsCleared) {
    const Fifo gate;
    SupervisedRun run(shell, {"-c", R"(printf one; read line <"$0"; printf two)", gate.path()});
    run.onChunk = [&](std::string_view bytes) {
        run.keep(bytes);
        gate.open();
        EXPECT_TRUE(run.exited.wait());  // "two" is in the pipe now
        run.process->clearOutputHandler();
        run.process->clearOutputHandler();
    };
    run.process->launch();
    ASSERT_TRUE(run.exited.wait());
    ASSERT_TRUE(run.waitForThreads());
    EXPECT_EQ(run.output(), "one");
}

/// True when no process has the writing end of the pipe open any more.
bool hasEnded(const Pipe& pipe) {
    pollfd end{pipe.reading.get(), POLLIN, 0};
    return ::poll(&end, 1, 0) == 1;
}

TEST(ChildProcess, HoldsADescriptorOpenUntilItsExitWithoutInheritingIt) {
    Pipe held = Pipe::open("");
    const Fifo gate;
    SupervisedRun run(shell, {"-c", R"(ls /proc/$$/fd; read line <"$0")", gate.path()});
    run.process->holdUntilExit(std::move(held.writing));
    run.process->launch();
    EXPECT_TRUE(run.waitForOutput("0\n1\n2\n"));
    EXPECT_FALSE(hasEnded(held));
    gate.open();
    ASSERT_TRUE(run.exited.wait());
    EXPECT_TRUE(hasEnded(held));
}

// fault: too few descriptors are left when the child is started
// seen: "start /bin/true: Too many open files"
TEST(ChildProcess, NeedsFourDescriptorsAndClosesTheHeldOneWithoutThem) {
    for (std::size_t left = 0; left <= 4; ++left) {
        Pipe held = Pipe::open("");
        SupervisedRun run("/bin/true");
        run.process->holdUntilExit(std::move(held.writing));
        std::string refusal;
        {
            const DescriptorLimit limit(left);
            refusal = errorOf([&] { run.process->launch(); });
        }
        // Outside the limit, because a sanitizer needs a descriptor when it checks a text.
        EXPECT_EQ(refusal, left < 4 ? "start /bin/true: Too many open files" : "") << left;
        EXPECT_TRUE(eventually([&] { return hasEnded(held); })) << left;
    }
}

// fault: the executable is missing, not executable, not a program or a folder; an argument has a NUL or is too long
// seen: "start /nonexistent/python3: No such file or directory", "start …: Permission denied",
//     "start …: Exec format error", "start … (an argument holds a NUL character): Invalid argument",
//     "start …: Argument list too long"
TEST(ChildProcess, RefusesWhatCannotBeStarted) {
    const TemporaryFolder folder;
    const std::string text = folder / "text";
    const std::string program = folder / "program";
    for (const std::string& file : {text, program}) writeTestFile(file, "no program");
    ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
    const std::tuple<std::string, Arguments, std::string> rows[] = {
        {"/nonexistent/python3", {}, "start /nonexistent/python3: No such file or directory"},
        {"true", {}, "start true: No such file or directory"},
        {text, {}, "start " + text + ": Permission denied"},
        {program, {}, "start " + program + ": Exec format error"},
        {"/bin/echo", {"b\0c"s}, "start /bin/echo (an argument holds a NUL character): Invalid argument"},
        {"/bin/true\0x"s, {}, "start /bin/true?x: Invalid argument"},
        {"/bin/true", {std::string(1 << 18, 'a')}, "start /bin/true: Argument list too long"}};
    for (const auto& [executable, arguments, refusal] : rows) {
        SupervisedRun run(executable, arguments);
        EXPECT_EQ(errorOf([&] { run.process->launch(); }), refusal);
        EXPECT_TRUE(run.waitForThreads());
        EXPECT_EQ(run.exits, 0);
    }
}

// fault: the user may start no more processes or threads
// seen: "start /bin/true: Resource temporarily unavailable"
TEST(ChildProcessDeathTest, CannotBeLaunchedByAUserWhoMayMakeNoMoreProcesses) {
    EXPECT_EXIT(failAsOrdinaryUser([] {
                    const ResourceLimit limit(RLIMIT_NPROC, 0);
                    ChildProcess::create("/bin/true", {})->launch();
                }),
                testing::ExitedWithCode(0), "start /bin/true: Resource temporarily unavailable");
}

}  // namespace
}  // namespace qelmo
