// A supervised child when the process that started it goes first. Linux, where the test can have what is left
// behind as its own children.

#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/ChildProcess.h"
#include "platform/Spawn.h"
#include "tests/support/Fifo.h"
#include "tests/support/Waiting.h"

namespace qelmo {
namespace {

namespace fs = std::filesystem;

constexpr const char* python = "/usr/bin/python3";

/// Waits for every process that was left behind; their exit statuses, in any order.
std::vector<int> statusesOfThoseLeftBehind() {
    std::vector<int> statuses;
    EXPECT_TRUE(eventually([&statuses] {
        int status = 0;
        const pid_t ended = ::waitpid(-1, &status, WNOHANG);
        if (ended > 0) statuses.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
        return ended < 0 && errno == ECHILD;
    }));
    return statuses;
}

// fault: the program dies while its child runs, and a process that the child started keeps the pipe
TEST(OutlivingChild, PrintsMegabytesToNobodyAndEndsWell) {
    const char* const script =
        "import os, sys\n"
        "open(sys.argv[1]).read(); os.write(1, b'x' * (1 << 20))\n"
        "if os.fork(): os._exit(3)\n"
        "open(sys.argv[2]).read(); os.write(1, b'x' * (1 << 20)); os._exit(4)";
    for (const int signal : {SIGKILL, SIGTERM}) {
        const Fifo gate;
        const Fifo second;
        // What the supervisor leaves behind becomes this process's responsibility.
        ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
        Pipe output = Pipe::open("");
        const pid_t supervisor = spawn({QELMO_SUPERVISOR,
                                        {python, "-c", script, gate.path(), second.path()},
                                        {},
                                        STDIN_FILENO,
                                        output.writing.get(),
                                        STDERR_FILENO});
        char unit = 0;
        ASSERT_EQ(::read(output.reading.get(), &unit, 1), 1) << "the supervisor says that its child runs";
        ASSERT_EQ(::kill(supervisor, signal), 0);
        EXPECT_EQ(reap(supervisor), signal);
        gate.open();
        second.open();
        EXPECT_THAT(statusesOfThoseLeftBehind(), testing::UnorderedElementsAre(3, 4, 0)) << signal;
        ::prctl(PR_SET_CHILD_SUBREAPER, 0);
    }
}

TEST(OutlivingChild, HasAKeeperThatKeepsNoFolderBusy) {
    ASSERT_NE(fs::current_path(), "/");
    const Fifo gate;
    const auto process = ChildProcess::create("/bin/sh", {"-c", R"(read line <"$0")", gate.path()});
    Event exited;
    process->setTerminationHandler([&exited](const auto&) { exited.happen(); });
    process->launch();
    EXPECT_TRUE(eventually([] {
        std::ifstream children("/proc/thread-self/children");
        return std::any_of(std::istream_iterator<std::string>(children), {}, [](const std::string& child) {
            std::error_code ignored;
            return fs::read_symlink("/proc/" + child + "/cwd", ignored) == "/";
        });
    }));
    gate.open();
    EXPECT_TRUE(exited.wait());
}

}  // namespace
}  // namespace qelmo
