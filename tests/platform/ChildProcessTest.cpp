#include "platform/ChildProcess.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/ThisProcess.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Fifo.h"
#include "tests/support/ProcessResources.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Waiting.h"

namespace qelmo {
namespace {

using namespace std::string_literals;
using Arguments = std::vector<std::string>;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* python = "/usr/bin/python3";
constexpr const char* shell = "/bin/sh";

/// Prints the NUL-separated arguments after the script itself.
constexpr const char* printArguments =
    "import os, sys; os.write(1, b''.join(os.fsencode(a) + b'\\0' for a in sys.argv[1:]))";

std::shared_ptr<ChildProcess> finished(const std::string& executable, Arguments arguments) {
    auto process = ChildProcess::create(executable, std::move(arguments));
    process->launch();
    process->waitUntilExit();
    return process;
}

std::string outputOf(const std::string& executable, Arguments arguments) {
    return finished(executable, std::move(arguments))->readToEndOfOutput();
}

int statusOf(const std::string& script) {
    return finished(shell, {"-c", script})->terminationStatus();
}

/// A supervised child whose chunks are kept and whose end can be waited for.
class SupervisedRun {
public:
    explicit SupervisedRun(std::string executable, Arguments arguments)
        : process(ChildProcess::create(std::move(executable), std::move(arguments))) {
        process->setOutputHandler([this](std::string_view bytes) { keep(bytes); });
        process->setTerminationHandler([this](const std::shared_ptr<ChildProcess>& ended) {
            EXPECT_EQ(ended, process);
            exitThread = std::this_thread::get_id();
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
        return eventually([&] { return output().find(expected) != std::string::npos; });
    }
    /// Until the reader and waiter threads have ended, so that nothing can come any more.
    [[nodiscard]] bool waitForThreads() {
        const bool ended = eventually([this] { return ProcessResources::now().threads <= before_.threads; });
        const std::lock_guard lock(mutex_);  // what the threads did has happened before what follows
        return ended;
    }

    const std::shared_ptr<ChildProcess> process;
    Event exited;
    std::atomic<int> exits = 0;
    std::thread::id exitThread;
    std::thread::id outputThread;
    std::function<void()> onChunk = [] {};

private:
    void keep(std::string_view bytes) {
        outputThread = std::this_thread::get_id();
        onChunk();
        const std::lock_guard lock(mutex_);
        chunks_.emplace_back(bytes);
    }

    const ProcessResources before_ = ProcessResources::now();
    std::mutex mutex_;
    std::vector<std::string> chunks_;
};

template <typename Launch>
std::string refusalOf(const std::string& executable, Arguments arguments, Launch launch) {
    const auto process = ChildProcess::create(executable, std::move(arguments));
    process->setOutputHandler([](std::string_view) { ADD_FAILURE() << "output of a child that never ran"; });
    process->setTerminationHandler([](const auto&) { ADD_FAILURE() << "exit of a child that never ran"; });
    try {
        launch(*process);
    } catch (const std::system_error& error) {
        return error.what();
    }
    return "started";
}

/// Both launches must refuse with the same words and leave nothing behind.
void expectRefusal(const std::string& executable, const Arguments& arguments, const std::string& expected) {
    const auto before = ProcessResources::now();
    EXPECT_EQ(refusalOf(executable, arguments, [](ChildProcess& process) { process.launch(); }), expected);
    EXPECT_EQ(refusalOf(executable, arguments, [](ChildProcess& process) { process.launchSupervised(); }),
              expected);
    EXPECT_TRUE(before.areBack());
}

TEST(ChildProcess, GetsExactlyItsArguments) {
    const Arguments arguments{"",   "a b", "\"'`$HOME\\", "line\nbreak\r", "\u00E9\xFF\xC0", "*", "-c", "--",
                              "\t", ""};
    std::string expected;
    for (const std::string& argument : arguments) expected += argument + '\0';
    Arguments all{"-c", printArguments};
    all.insert(all.end(), arguments.begin(), arguments.end());
    EXPECT_EQ(outputOf(python, all), expected);
}

TEST(ChildProcess, CarriesItsExecutableAsItsName) {
    EXPECT_EQ(outputOf(shell, {"-c", "tr '\\0' '|' </proc/$$/cmdline"}),
              "/bin/sh|-c|tr '\\0' '|' </proc/$$/cmdline|");
}

TEST(ChildProcess, WritesBothStreamsToOnePipeInTheOrderWritten) {
    EXPECT_EQ(outputOf(shell, {"-c", "echo one; echo two >&2; echo three; echo four >&2"}),
              "one\ntwo\nthree\nfour\n");
    SupervisedRun run(shell, {"-c", "echo one; echo two >&2; echo three; echo four >&2"});
    run.process->launchSupervised();
    EXPECT_TRUE(run.waitForOutput("one\ntwo\nthree\nfour\n"));
    EXPECT_TRUE(run.exited.wait());
}

TEST(ChildProcess, InheritsStandardInput) {
    const TemporaryFolder folder;
    writeTestFile(folder / "input", "what the parent reads");
    const FileDescriptor kept(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
    const FileDescriptor input(::open((folder / "input").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::dup2(input.get(), STDIN_FILENO), STDIN_FILENO);
    EXPECT_EQ(outputOf("/bin/cat", {}), "what the parent reads");
    ::dup2(kept.get(), STDIN_FILENO);
}

TEST(ChildProcess, InheritsTheWorkingDirectory) {
    const TemporaryFolder folder;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    EXPECT_EQ(outputOf("/bin/readlink", {"/proc/self/cwd"}), folder.path() + "\n");
    std::filesystem::current_path(before);
}

TEST(ChildProcess, InheritsTheWholeEnvironment) {
    const ScopedEnvironment variable("QELMO_TEST_VARIABLE", "a=b\nc\xFF");
    std::string expected;
    for (const std::string& entry : processEnvironment()) expected += entry + '\0';
    EXPECT_EQ(outputOf("/usr/bin/env", {"-0"}), expected);
}

TEST(ChildProcess, GetsTheEnvironmentThatReplacesTheInheritedOne) {
    const auto run = [](std::vector<std::string> environment) {
        const auto process = ChildProcess::create("/usr/bin/env", {"-0"});
        process->setEnvironment(std::move(environment));
        process->launch();
        process->waitUntilExit();
        return process->readToEndOfOutput();
    };
    EXPECT_EQ(run({"A=1", "B=x\ny\xFF", "EMPTY="}), "A=1\0B=x\ny\xFF\0EMPTY=\0"s);
    EXPECT_EQ(run({}), "");
    const std::string longValue = "LONG=" + std::string(10'000, 'x');
    EXPECT_EQ(run({longValue, "A=1"}), longValue + "\0A=1\0"s);
}

// fault: the program has descriptors open that a child could inherit
TEST(ChildProcess, InheritsNoOtherDescriptor) {
    const std::array descriptors{FileDescriptor(::open("/dev/null", O_RDONLY)),
                                 FileDescriptor(::open("/dev/zero", O_RDONLY)),
                                 FileDescriptor(::fcntl(STDERR_FILENO, F_DUPFD, 200))};
    for (const FileDescriptor& descriptor : descriptors) ASSERT_TRUE(descriptor.isOpen());
    // The listing itself needs one descriptor: the one that is gone when the list is complete.
    EXPECT_EQ(outputOf(python, {"-c",
                                "import os\n"
                                "def is_open(number):\n"
                                "    return os.path.exists(f'/proc/self/fd/{number}')\n"
                                "print(list(filter(is_open, map(int, os.listdir('/proc/self/fd')))))"}),
              "[0, 1, 2]\n");
}

TEST(ChildProcess, LeavesTheParentOnlyTheReadingEnd) {
    const auto before = ProcessResources::now();
    {
        const auto process = finished("/bin/true", {});
        EXPECT_EQ(ProcessResources::now().descriptors, before.descriptors + 1);
    }
    EXPECT_EQ(ProcessResources::now().descriptors, before.descriptors);
}

/// The given line of the child's /proc/self/status.
std::string signalsOf(const std::string& name) {
    const std::string status = outputOf("/bin/cat", {"/proc/self/status"});
    const auto start = status.find("\n" + name + ":\t");
    return start == std::string::npos ? status : status.substr(start + name.size() + 3, 16);
}

TEST(ChildProcess, StartsWithNoSignalBlocked) {
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    for (const int signal : {SIGUSR1, SIGTERM, SIGCHLD}) sigaddset(&blocked, signal);
#ifdef SIGRTMIN
    sigaddset(&blocked, SIGRTMIN);
#endif
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, &before), 0);
    EXPECT_EQ(signalsOf("SigBlk"), "0000000000000000");
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// fault: the program, or its parent, ignores signals
TEST(ChildProcess, StartsWithNoSignalIgnored) {
    const std::array signals{SIGHUP, SIGPIPE, SIGTERM, SIGINT};
    for (const int signal : signals) ASSERT_NE(std::signal(signal, SIG_IGN), SIG_ERR);
    // Signals 32 and 33 are the C library's own and closed to programs; it ignores them in every child.
    constexpr unsigned long long ownSignals = 3ULL << 31;
    EXPECT_EQ(std::stoull(signalsOf("SigIgn"), nullptr, 16) & ~ownSignals, 0U);
    for (const int signal : signals) std::signal(signal, SIG_DFL);
}

TEST(ChildProcess, ReportsItsExitStatus) {
    for (const int status : {0, 1, 2, 127, 128, 129, 255})
        EXPECT_EQ(statusOf("exit " + std::to_string(status)), status);
}

TEST(ChildProcess, IsNoSuccessWhenSomebodyElseHasFetchedItsStatus) {
    const auto process = ChildProcess::create("/bin/true", {});
    process->launch();
    ASSERT_GT(::waitpid(-1, nullptr, 0), 0);
    process->waitUntilExit();
    EXPECT_EQ(process->terminationStatus(), 255);
}

// fault: a child is killed
TEST(ChildProcess, ReportsASignalAsANumberOtherThanZero) {
    EXPECT_EQ(statusOf("kill -TERM $$"), SIGTERM);
    EXPECT_EQ(statusOf("kill -KILL $$"), SIGKILL);
}

TEST(ChildProcess, IsReapedWhenItsExitIsReported) {
    SupervisedRun run(shell, {"-c", "exit 7"});
    run.process->launchSupervised();
    ASSERT_TRUE(run.exited.wait());
    EXPECT_EQ(run.process->terminationStatus(), 7);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "there is still a child";
    EXPECT_EQ(errno, ECHILD);
}

TEST(ChildProcess, ReportsOutputAndExitOnceEachOnThreadsOfTheirOwn) {
    SupervisedRun run(shell, {"-c", "echo text"});
    run.process->launchSupervised();
    ASSERT_TRUE(run.waitForOutput("text\n"));
    ASSERT_TRUE(run.exited.wait());
    ASSERT_TRUE(run.waitForThreads());
    EXPECT_EQ(run.exits, 1);
    EXPECT_THAT(run.chunks(), ElementsAre("text\n"));
    EXPECT_NE(run.exitThread, std::this_thread::get_id());
    EXPECT_NE(run.outputThread, std::this_thread::get_id());
    EXPECT_NE(run.outputThread, run.exitThread);
}

TEST(ChildProcess, DeliversNothingAtTheEndOfItsOutput) {
    SupervisedRun run("/bin/true", {});
    run.process->launchSupervised();
    ASSERT_TRUE(run.exited.wait());
    ASSERT_TRUE(run.waitForThreads());
    EXPECT_THAT(run.chunks(), IsEmpty());
}

TEST(ChildProcess, DeliversOutputWhileItStillRuns) {
    const Fifo gate;
    SupervisedRun run(shell, {"-c", R"(printf begun; read line <"$1"; printf ' ended')", "sh", gate.path()});
    run.process->launchSupervised();
    EXPECT_TRUE(run.waitForOutput("begun"));
    EXPECT_EQ(run.exits, 0);
    gate.open();
    EXPECT_TRUE(run.waitForOutput("begun ended"));
    EXPECT_TRUE(run.exited.wait());
}

TEST(ChildProcess, DeliversAFullPipeInOneChunk) {
    const Fifo gate;
    SupervisedRun run(python, {"-c",
                               "import os, sys; os.write(1, b'x'); open(sys.argv[1]).read();"
                               "os.write(1, b'y' * 65536)",
                               gate.path()});
    run.onChunk = [&run, &gate, first = true]() mutable {
        if (!std::exchange(first, false)) return;
        gate.open();
        EXPECT_TRUE(run.exited.wait());  // everything has been written, nothing of it has been read
    };
    run.process->launchSupervised();
    ASSERT_TRUE(run.exited.wait());
    ASSERT_TRUE(run.waitForThreads());
    EXPECT_THAT(run.chunks(), ElementsAre("x", std::string(65536, 'y')));
}

TEST(ChildProcess, DeliversEveryByteOfALongOutput) {
    SupervisedRun run(python, {"-c", "import sys; sys.stdout.write('0123456789' * 100000)"});
    run.process->launchSupervised();
    ASSERT_TRUE(run.exited.wait());
    ASSERT_TRUE(run.waitForThreads());
    std::string expected;
    for (int count = 0; count < 100'000; ++count) expected += "0123456789";
    EXPECT_EQ(run.output(), expected);
}

// fault: a grandchild keeps the pipe open
TEST(ChildProcess, ReportsItsExitWhileAGrandchildKeepsThePipeOpen) {
    SupervisedRun run(shell, {"-c", "sleep 600 & echo $!; exit 3"});
    run.process->launchSupervised();
    EXPECT_TRUE(run.exited.wait());
    EXPECT_EQ(run.process->terminationStatus(), 3);
    ASSERT_TRUE(run.waitForOutput("\n"));
    const pid_t grandchild = std::stoi(run.output());
    EXPECT_EQ(::kill(grandchild, 0), 0) << "the grandchild should still be there";
    run.process->clearOutputHandler();
    EXPECT_TRUE(run.waitForThreads()) << "the reader still waits for the grandchild";
    ::kill(grandchild, SIGKILL);
}

TEST(ChildProcess, DeliversNothingMoreOnceTheOutputHandlerIsCleared) {
    const Fifo gate;
    SupervisedRun run(shell, {"-c", R"(printf one; read line <"$1"; printf two)", "sh", gate.path()});
    run.process->launchSupervised();
    ASSERT_TRUE(run.waitForOutput("one"));
    run.process->clearOutputHandler();
    run.process->clearOutputHandler();
    gate.open();
    ASSERT_TRUE(run.exited.wait());
    ASSERT_TRUE(run.waitForThreads());
    EXPECT_EQ(run.output(), "one");
}

TEST(ChildProcess, DeliversNothingThatWaitsInThePipeWhenTheOutputHandlerIsCleared) {
    const Fifo gate;
    SupervisedRun run(shell, {"-c", R"(printf one; read line <"$1"; printf two)", "sh", gate.path()});
    run.onChunk = [&] {
        gate.open();
        EXPECT_TRUE(run.exited.wait());  // "two" is in the pipe now
        run.process->clearOutputHandler();
    };
    run.process->launchSupervised();
    ASSERT_TRUE(run.exited.wait());
    ASSERT_TRUE(run.waitForThreads());
    EXPECT_EQ(run.output(), "one");
}

TEST(ChildProcess, MayPrintAMegabyteOnceTheOutputHandlerIsCleared) {
    const Fifo gate;
    SupervisedRun run(
        python,
        {"-c", "import os, sys; open(sys.argv[1]).read(); os.write(1, b'x' * (1 << 20))", gate.path()});
    run.process->launchSupervised();
    run.process->clearOutputHandler();
    gate.open();
    EXPECT_TRUE(run.exited.wait());
    EXPECT_EQ(run.process->terminationStatus(), 0);
}

TEST(ChildProcess, HasASessionOfItsOwnWhenItIsSupervised) {
    const char* script = "import os; os.write(1, b'%d' % (os.getsid(0) == os.getpid()))";
    SupervisedRun run(python, {"-c", script});
    run.process->launchSupervised();
    EXPECT_TRUE(run.waitForOutput("1"));
    EXPECT_TRUE(run.exited.wait());
    EXPECT_EQ(outputOf(python, {"-c", script}), "0");
}

TEST(ChildProcess, KeepsWhatIsHeldOpenUntilItsExitAndDoesNotGetIt) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    const FileDescriptor reading(ends[0]);
    const Fifo gate;
    SupervisedRun run(shell, {"-c", R"(ls /proc/$$/fd; read line <"$1")", "sh", gate.path()});
    run.process->holdUntilExit(FileDescriptor(ends[1]));
    run.process->launchSupervised();
    pollfd end{reading.get(), POLLIN, 0};
    EXPECT_TRUE(run.waitForOutput("0\n1\n2\n"));
    EXPECT_EQ(run.output(), "0\n1\n2\n");
    EXPECT_EQ(::poll(&end, 1, 0), 0) << "nobody holds it";
    gate.open();
    ASSERT_TRUE(run.exited.wait());
    EXPECT_EQ(::poll(&end, 1, 0), 1) << "somebody still holds it";
}

TEST(ChildProcess, LetsGoOfWhatIsHeldWhenItCannotBeLaunched) {
    for (std::size_t left = 0; left < 4; ++left) {
        std::array<int, 2> ends{};
        ASSERT_EQ(::pipe(ends.data()), 0);
        const FileDescriptor reading(ends[0]);
        const auto process = ChildProcess::create("/bin/true", {});
        process->holdUntilExit(FileDescriptor(ends[1]));
        {
            const DescriptorLimit limit(left);
            EXPECT_THROW(process->launchSupervised(), std::system_error);
        }
        pollfd end{reading.get(), POLLIN, 0};
        EXPECT_EQ(::poll(&end, 1, 0), 1) << "it is still held, with " << left << " descriptors left";
    }
}

TEST(ChildProcess, KeepsItselfAliveUntilItsExitHasBeenReported) {
    const Fifo gate;
    Event exited;
    std::weak_ptr<ChildProcess> weak;
    {
        const auto process =
            ChildProcess::create(shell, {"-c", R"(read line <"$1"; exit 4)", "sh", gate.path()});
        process->setTerminationHandler([&](const std::shared_ptr<ChildProcess>& ended) {
            EXPECT_EQ(ended->terminationStatus(), 4);
            exited.happen();
        });
        process->launchSupervised();
        weak = process;
    }
    EXPECT_FALSE(weak.expired());
    gate.open();
    EXPECT_TRUE(exited.wait());
    EXPECT_TRUE(eventually([&] { return weak.expired(); }));
}

TEST(ChildProcess, RunsWithoutHandlers) {
    const auto before = ProcessResources::now();
    ChildProcess::create("/bin/true", {})->launchSupervised();
    EXPECT_TRUE(before.areBack());
}

// fault: the executable is missing
// seen: "start /nonexistent/python3: No such file or directory"
TEST(ChildProcess, RefusesAMissingExecutable) {
    expectRefusal("/nonexistent/python3", {"x"}, "start /nonexistent/python3: No such file or directory");
}

TEST(ChildProcess, SearchesNothingForABareName) {
    const TemporaryFolder folder;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    expectRefusal("true", {}, "start true: No such file or directory");
    std::filesystem::current_path(before);
}

// fault: the executable may not be executed
// seen: "start …: Permission denied"
TEST(ChildProcess, RefusesAFileThatIsNotExecutable) {
    const TemporaryFolder folder;
    writeTestFile(folder / "tool", "#!/bin/sh\n");
    expectRefusal(folder / "tool", {}, "start " + (folder / "tool") + ": Permission denied");
}

// fault: the executable is no program
// seen: "start …: Exec format error"
TEST(ChildProcess, RefusesAFileInNoExecutableFormat) {
    const TemporaryFolder folder;
    writeTestFile(folder / "tool", "text");
    ASSERT_EQ(::chmod((folder / "tool").c_str(), 0755), 0);
    expectRefusal(folder / "tool", {}, "start " + (folder / "tool") + ": Exec format error");
}

// fault: a folder is in the place of the executable
// seen: "start …: Permission denied"
TEST(ChildProcess, RefusesAFolder) {
    const TemporaryFolder folder;
    expectRefusal(folder.path(), {}, "start " + folder.path() + ": Permission denied");
}

// fault: an argument holds a NUL
// seen: "start … (an argument holds a NUL character): Invalid argument"
TEST(ChildProcess, RefusesANulThatWouldCutAnArgumentOrItsNameShort) {
    expectRefusal("/bin/echo", {"a", "b\0c"s},
                  "start /bin/echo (an argument holds a NUL character): Invalid argument");
    expectRefusal("/bin/true\0x"s, {}, "start /bin/true?x: Invalid argument");
}

// fault: the arguments are too long for the system
// seen: "start /bin/true: Argument list too long"
TEST(ChildProcess, RefusesArgumentsThatAreTooLongForTheSystem) {
    expectRefusal("/bin/true", {std::string(1 << 18, 'a')}, "start /bin/true: Argument list too long");
}

TEST(ChildProcess, GivesBackItsThreadsAndDescriptorsAfterManyRuns) {
    const auto before = ProcessResources::now();
    for (int count = 0; count < 40; ++count) {
        Event exited;
        const auto process = ChildProcess::create(shell, {"-c", "echo text"});
        process->setOutputHandler([](std::string_view) {});
        process->setTerminationHandler([&exited](const auto&) { exited.happen(); });
        process->launchSupervised();
        ASSERT_TRUE(exited.wait());
    }
    EXPECT_TRUE(before.areBack());
}

}  // namespace
}  // namespace qelmo
