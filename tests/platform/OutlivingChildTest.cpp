// A supervised child and the process that started it, when that process goes first. Linux, where the test can
// have what is left behind as its own children.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>

#include "platform/ChildProcess.h"
#include "tests/support/Fifo.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Waiting.h"

namespace qelmo {
namespace {

using testing::UnorderedElementsAre;

constexpr const char* python = "/usr/bin/python3";

/// A process that supervises a child, and becomes this process's responsibility with all that it leaves
/// behind.
class Supervisor {
public:
    Supervisor(const std::string& script, std::vector<std::string> arguments) {
        EXPECT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
        arguments.insert(arguments.begin(), {"supervise", python, "-c", script});
        process_ = ChildProcess::create(QELMO_PROCESS_REPORT, std::move(arguments));
        process_->launch();
    }
    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;
    ~Supervisor() { ::prctl(PR_SET_CHILD_SUBREAPER, 0); }

    /// The process writes its number when the child runs.
    void killWith(int signal) const {
        const std::string number = process_->readToEndOfOutput();
        EXPECT_EQ(::kill(std::stoi(number), signal), 0) << number;
        process_->waitUntilExit();
        EXPECT_EQ(process_->terminationStatus(), signal);
    }

private:
    std::shared_ptr<ChildProcess> process_;
};

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

// fault: the program dies while its child runs
TEST(OutlivingChild, PrintsAMegabyteToNobodyAndEndsWell) {
    for (const int signal : {SIGKILL, SIGTERM, SIGABRT}) {
        const Fifo gate;
        const Supervisor supervisor(
            "import os, resource, sys; open(sys.argv[1]).read(); os.write(1, b'x' * (1 << 20)); os._exit(3)",
            {gate.path()});
        supervisor.killWith(signal);
        gate.open();
        EXPECT_THAT(statusesOfThoseLeftBehind(), UnorderedElementsAre(3, 0)) << signal;
    }
}

// fault: the program dies while its child runs, and a process that the child started keeps the pipe
TEST(OutlivingChild, MayLeaveAGrandchildThatPrints) {
    const Fifo gate;
    const Fifo second;
    const Supervisor supervisor(
        "import os, sys\n"
        "open(sys.argv[1]).read()\n"
        "if os.fork(): os._exit(3)\n"
        "open(sys.argv[2]).read(); os.write(1, b'x' * (1 << 20)); os._exit(4)",
        {gate.path(), second.path()});
    supervisor.killWith(SIGKILL);
    gate.open();
    second.open();
    EXPECT_THAT(statusesOfThoseLeftBehind(), UnorderedElementsAre(3, 4, 0));
}

}  // namespace
}  // namespace qelmo
