#include "platform/LeasedMapping.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/FileReading.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

using testing::IsNull;
using testing::NotNull;

/// A file that is worth mapping.
class ALeasedMapping : public testing::Test {
protected:
    ALeasedMapping() { writeTestFile(path, bytes); }

    [[nodiscard]] FileDescriptor opened(int flags) const {
        return FileDescriptor(::open(path.c_str(), flags | O_CLOEXEC));
    }
    /// One that cannot be had is no fault: the bytes are copied then.
    void SetUp() override {
        const FileDescriptor file = opened(O_RDONLY);
        if (::fcntl(file.get(), F_SETLEASE, F_RDLCK) != 0)
            GTEST_SKIP() << "the file system of " << path << " has no leases";
    }

    const TemporaryFolder folder;
    const std::string path = folder / "image.bin";
    const std::string bytes = std::string(3 << 20, 'x') + "end";
};

TEST_F(ALeasedMapping, HoldsTheBytesOfTheFileAlsoWhenTheFileIsClosed) {
    FileDescriptor file = opened(O_RDONLY);
    const auto mapping = LeasedMapping::create(file.get(), bytes.size());
    ASSERT_THAT(mapping, NotNull());
    file.close();
    EXPECT_TRUE(std::ranges::equal(mapping->span(), bytesOf(bytes)));
}

// fault: the image is cut off while it is read
TEST_F(ALeasedMapping, KeepsWritersWaitingUntilItIsGone) {
    {
        const auto mapping = LeasedMapping::create(opened(O_RDONLY).get(), bytes.size());
        ASSERT_THAT(mapping, NotNull());
        EXPECT_FALSE(opened(O_WRONLY | O_TRUNC | O_NONBLOCK).isOpen());
        EXPECT_EQ(errno, EWOULDBLOCK);
        EXPECT_TRUE(std::ranges::equal(mapping->span(), bytesOf(bytes)));
    }
    EXPECT_TRUE(opened(O_WRONLY | O_TRUNC | O_NONBLOCK).isOpen());
}

TEST_F(ALeasedMapping, IsNotMadeOfAFileThatIsOpenForWriting) {
    const FileDescriptor writer = opened(O_RDWR);
    EXPECT_THAT(LeasedMapping::create(opened(O_RDONLY).get(), bytes.size()), IsNull());
    EXPECT_TRUE(std::ranges::equal(RegularFile(path).readAll(bytes.size()).span(), bytesOf(bytes)));
}

TEST_F(ALeasedMapping, IsNotMadeOfAFileOfAnotherLength) {
    const FileDescriptor file = opened(O_RDONLY);
    EXPECT_THAT(LeasedMapping::create(file.get(), bytes.size() - 1), IsNull());
    EXPECT_THAT(LeasedMapping::create(file.get(), bytes.size() + 1), IsNull());
    EXPECT_THAT(LeasedMapping::create(file.get(), 0), IsNull());
}

TEST_F(ALeasedMapping, LeavesNoLeaseBehindWhenItIsNotMade) {
    const FileDescriptor file = opened(O_RDONLY);
    EXPECT_THAT(LeasedMapping::create(file.get(), bytes.size() + 1), IsNull());
    EXPECT_TRUE(opened(O_WRONLY | O_NONBLOCK).isOpen());
}

}  // namespace
}  // namespace qelmo
