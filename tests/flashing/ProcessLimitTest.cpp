#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/flashing/ToolJob.h"

namespace qelmo {
namespace {

/// Until the end of the scope this process is an ordinary user's who may make no thread and no process more.
class NoMoreProcesses {
public:
    NoMoreProcesses() {
        constexpr uid_t nobody = 65534;
        // The limit concerns the real user, and root never. The saved user leads back.
        inForce =
            (!isRoot_ || ::setresuid(nobody, nobody, 0) == 0) && ::getrlimit(RLIMIT_NPROC, &before_) == 0;
        const rlimit none{0, before_.rlim_max};
        inForce = inForce && ::setrlimit(RLIMIT_NPROC, &none) == 0;
    }
    NoMoreProcesses(const NoMoreProcesses&) = delete;
    NoMoreProcesses& operator=(const NoMoreProcesses&) = delete;
    ~NoMoreProcesses() {
        if (inForce) ::setrlimit(RLIMIT_NPROC, &before_);
        // Who changes its user may not be looked into any more, which the leak checker does.
        if (isRoot_ && (::setresuid(0, 0, 0) != 0 || ::prctl(PR_SET_DUMPABLE, 1) != 0)) std::abort();
    }

    bool inForce = false;

private:
    const bool isRoot_ = ::geteuid() == 0;
    rlimit before_{};
};

// fault: the user may make no process and no thread more
// seen: "start /bin/true: Resource temporarily unavailable"
TEST(ToolFaults, ALimitOfProcessesIsAReasonNotToStart) {
    std::string refusal;
    {
        ToolJob job("/bin/true");
        const NoMoreProcesses limit;
        if (!limit.inForce) GTEST_SKIP() << "needs the right to become another user";
        refusal = job.launch();
    }
    EXPECT_EQ(refusal, "start /bin/true: Resource temporarily unavailable");
    EXPECT_EQ(ToolJob("/bin/true").run(), 0);
}

}  // namespace
}  // namespace qelmo
