// A supervised child whose supervisor dies first. On Linux, where the test can adopt orphaned processes.

#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/ChildProcess.h"
#include "platform/Spawn.h"
#include "tests/support/Fifo.h"
#include "tests/support/Waiting.h"

namespace qelmo {
namespace {

constexpr const char* python = "/usr/bin/python3";

/// Waits for every process that was left running. Returns their exit statuses in any order.
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

// fault: the program dies while its child runs, and a process that the child started keeps the pipe open
TEST(OutlivingChild, WritesMegabytesWithoutAReaderAndSucceeds) {
    const char* const script =
        "import os, sys\n"
        "open(sys.argv[1]).read(); os.write(1, b'x' * (1 << 20))\n"
        "if os.fork(): os._exit(3)\n"
        "open(sys.argv[2]).read(); os.write(1, b'x' * (1 << 20)); os._exit(4)";
    const Fifo gate;
    const Fifo second;
    // Processes that outlive the supervisor become children of this process.
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
    ASSERT_EQ(::kill(supervisor, SIGKILL), 0);
    EXPECT_EQ(reap(supervisor), SIGKILL);
    gate.open();
    second.open();
    EXPECT_THAT(statusesOfThoseLeftBehind(), testing::UnorderedElementsAre(3, 4, 0));
    ::prctl(PR_SET_CHILD_SUBREAPER, 0);
}

}  // namespace
}  // namespace qelmo
