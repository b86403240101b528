#include "flashing/PortClaim.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/ErrorOf.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

/// Links to devices that every system has. The folder is the test's own, so no other process claims them.
class PortClaim : public testing::Test {
protected:
    PortClaim() {
        for (const char* link : {"port", "other name"})
            std::filesystem::create_symlink("/dev/null", folder_ / link);
        std::filesystem::create_symlink("/dev/zero", folder_ / "other device");
        for (const char* file : {"file", "other file"}) writeTestFile(folder_ / file, "");
    }
    [[nodiscard]] FileDescriptor claim(const char* name) const { return claimPort(folder_ / name); }
    [[nodiscard]] bool isFree(const char* name) const {
        const std::string reason = errorOf([&] { EXPECT_TRUE(claim(name).isOpen()); });
        if (reason.empty()) return true;
        EXPECT_EQ(reason, "An earlier flash job is still running on " + (folder_ / name) +
                              ". Wait until it ends, then flash again.");
        return false;
    }

private:
    const TemporaryFolder folder_;
};

TEST_F(PortClaim, IsRefusedUntilEveryCopyOfAnEarlierOneIsClosed) {
    FileDescriptor first = claim("port");
    EXPECT_EQ(::fcntl(first.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_FALSE(isFree("port"));
    FileDescriptor copy(::fcntl(first.get(), F_DUPFD_CLOEXEC, 0));
    first.close();
    EXPECT_FALSE(isFree("port"));
    copy.close();
    EXPECT_TRUE(isFree("port"));
    EXPECT_TRUE(isFree("port"));
}

TEST_F(PortClaim, IdentifiesADeviceByItsNumberNotItsName) {
    const FileDescriptor device = claim("port");
    EXPECT_FALSE(isFree("other name"));
    EXPECT_TRUE(isFree("other device"));
    const FileDescriptor file = claim("file");
    EXPECT_FALSE(isFree("other file")) << "what is no device has the number 0";
}

TEST_F(PortClaim, IsNotNeededForAPortThatHasGone) {
    EXPECT_FALSE(claimPort("/nonexistent/port").isOpen());
}

}  // namespace
}  // namespace qelmo
