#include "flashing/PortClaim.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <system_error>

#include "release/FlasherFailure.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/TemporaryFolder.h"

namespace qelmo {
namespace {

/// Links to devices that every system has. The folder is the test's own, so nobody else's claim is met.
class PortClaim : public testing::Test {
protected:
    std::string port(const std::string& name, const char* device) const {
        EXPECT_EQ(::symlink(device, (folder_ / name).c_str()), 0);
        return folder_ / name;
    }
    static std::string refusalOf(const std::string& port) {
        try {
            EXPECT_TRUE(claimPort(port).isOpen());
        } catch (const FlasherFailure& failure) {
            return failure.errorDescription();
        }
        return "";
    }
    static std::string sentenceFor(const std::string& port) {
        return "An earlier flash job is still running on " + port +
               "; it ends by itself, and then the port is free again.";
    }

private:
    const TemporaryFolder folder_;
};

TEST_F(PortClaim, IsRefusedUntilEveryCopyOfAnEarlierOneIsClosed) {
    const std::string path = port("port", "/dev/null");
    FileDescriptor claim = claimPort(path);
    EXPECT_EQ(refusalOf(path), sentenceFor(path));
    FileDescriptor copy(::fcntl(claim.get(), F_DUPFD_CLOEXEC, 0));
    claim.close();
    EXPECT_EQ(refusalOf(path), sentenceFor(path));
    copy.close();
    EXPECT_EQ(refusalOf(path), "");
    EXPECT_EQ(refusalOf(path), "");
}

TEST_F(PortClaim, IsOfTheDeviceWhateverItsName) {
    const std::string first = port("first", "/dev/null");
    const std::string second = port("second", "/dev/null");
    const FileDescriptor claim = claimPort(first);
    EXPECT_EQ(refusalOf(second), sentenceFor(second));
}

TEST_F(PortClaim, LeavesOtherDevicesAlone) {
    const FileDescriptor claim = claimPort(port("first", "/dev/null"));
    EXPECT_EQ(refusalOf(port("second", "/dev/zero")), "");
}

TEST_F(PortClaim, IsCloseOnExec) {
    const FileDescriptor claim = claimPort(port("port", "/dev/null"));
    EXPECT_EQ(::fcntl(claim.get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(PortClaim, IsNotNeededForAPortThatHasGone) {
    EXPECT_FALSE(claimPort("/nonexistent/port").isOpen());
}

// fault: no descriptor is left when the port is claimed
// seen: "open /dev: Too many open files"
TEST_F(PortClaim, WithoutADescriptorSaysSo) {
    std::string reason;
    try {
        const DescriptorLimit limit(0);
        (void)claimPort("/dev/null");
    } catch (const std::system_error& error) {
        reason = error.what();
    }
    EXPECT_EQ(reason, "open /dev: Too many open files");
}

}  // namespace
}  // namespace qelmo
