
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>

#include "platform/Spawn.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

using Arguments = std::vector<std::string>;

constexpr const char* python = "/usr/bin/python3";
constexpr const char* shell = "/bin/sh";

std::string outputOf(const std::string& executable, const Arguments& arguments) {
    return runToEnd(executable, arguments, ReadOutput::whileRunning).output;
}

TEST(FinishedProcess, GetsItsNameAndExactlyItsArguments) {
    Arguments arguments{"-c", "import os; os.write(1, open('/proc/self/cmdline', 'rb').read())"};
    for (const char* odd :
         {"", "a b", "\"'`$HOME\\", "line\nbreak\r", "\u00E9\xFF\xC0", "*", "-c", "--", "\t", ""})
        arguments.emplace_back(odd);
    std::string expected = python + std::string(1, '\0');
    for (const std::string& argument : arguments) expected += argument + '\0';
    EXPECT_EQ(outputOf(python, arguments), expected);
}

TEST(FinishedProcess, WritesBothStreamsToOnePipeInTheOrderWritten) {
    for (const ReadOutput order : {ReadOutput::afterExit, ReadOutput::whileRunning}) {
        const auto finished = runToEnd(shell, {"-c", "echo one; echo two >&2; echo three; exit 5"}, order);
        EXPECT_EQ(finished.output, "one\ntwo\nthree\n");
        EXPECT_EQ(finished.terminationStatus, 5);
    }
    EXPECT_EQ(outputOf(python, {"-c", "print('x' * (1 << 20), end='')"}), std::string(1 << 20, 'x'));
}

TEST(FinishedProcess, InheritsStandardInputWorkingDirectoryAndEnvironment) {
    const TemporaryFolder folder;
    writeTestFile(folder / "input", "what the parent reads");
    const FileDescriptor kept(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
    const FileDescriptor input(::open((folder / "input").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::dup2(input.get(), STDIN_FILENO), STDIN_FILENO);
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    const ScopedEnvironment variable("QELMO_TEST_VARIABLE", "a=b\n\xFF");
    EXPECT_EQ(outputOf(shell, {"-c", "cat; pwd -P; printf %s \"$QELMO_TEST_VARIABLE\""}),
              "what the parent reads" + folder.path() + "\na=b\n\xFF");
    std::filesystem::current_path(before);
    ::dup2(kept.get(), STDIN_FILENO);
}

// fault: the program has descriptors open that a child could inherit, and blocks or ignores signals
TEST(FinishedProcess, StartsWithThreeDescriptorsAndNoSignalBlockedOrIgnored) {
    const std::array inheritable{FileDescriptor(::open("/dev/null", O_RDONLY)),
                                 FileDescriptor(::fcntl(STDERR_FILENO, F_DUPFD, 200))};
    for (const FileDescriptor& one : inheritable) ASSERT_TRUE(one.isOpen());
    constexpr std::array signals{SIGHUP, SIGPIPE, SIGTERM, SIGINT, SIGCHLD, SIGUSR1};
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    for (const int signal : signals) sigaddset(&blocked, signal);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, &before), 0);
    for (const int signal : {SIGHUP, SIGPIPE, SIGTERM}) ASSERT_NE(std::signal(signal, SIG_IGN), SIG_ERR);

    EXPECT_EQ(outputOf(shell, {"-c", "ls /proc/$$/fd"}), "0\n1\n2\n");
    // Signals 32 and 33 belong to the C library, which ignores them in every child. Programs cannot use them.
    EXPECT_THAT(outputOf("/bin/grep", {"-E", "Sig(Blk|Ign)", "/proc/self/status"}),
                testing::MatchesRegex("SigBlk:\t0{16}\nSigIgn:\t0{7}[01][08]0{7}\n"));

    for (const int signal : {SIGHUP, SIGPIPE, SIGTERM}) std::signal(signal, SIG_DFL);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// fault: a child is killed
TEST(FinishedProcess, ReportsItsStatusOrItsSignalAndNoSignalAsSuccess) {
    const auto statusOf = [](const std::string& script) {
        return runToEnd(shell, {"-c", "ulimit -c 0; " + script}, ReadOutput::afterExit).terminationStatus;
    };
    for (const int status : {0, 1, 127, 128, 255})
        EXPECT_EQ(statusOf("exit " + std::to_string(status)), status);
    for (const int signal : {SIGTERM, SIGKILL, SIGSEGV})
        EXPECT_EQ(statusOf("kill -" + std::to_string(signal) + " $$"), signal);
}

// fault: signals interrupt the program constantly
TEST(FinishedProcess, IsWaitedForAndReadWhileSignalsInterrupt) {
    static std::atomic<int> count = 0;
    struct sigaction counting {};  // without SA_RESTART no call resumes by itself
    counting.sa_handler = [](int) { ++count; };
    ASSERT_EQ(::sigaction(SIGALRM, &counting, nullptr), 0);
    ::ualarm(1000, 1000);
    for (const ReadOutput order : {ReadOutput::afterExit, ReadOutput::whileRunning})
        EXPECT_EQ(runToEnd(python, {"-c", "print('text')"}, order).output, "text\n");
    ::ualarm(0, 0);
    std::signal(SIGALRM, SIG_IGN);  // discards a pending one
    std::signal(SIGALRM, SIG_DFL);
    EXPECT_GT(count, 0);
}

TEST(FinishedProcess, IsNotASuccessWhenItsStatusWasAlreadyCollected) {
    const pid_t child = spawn({"/bin/true", {}, {}, STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO});
    ASSERT_EQ(::waitpid(-1, nullptr, 0), child);
    EXPECT_EQ(reap(child), 255);
}

}  // namespace
}  // namespace qelmo
