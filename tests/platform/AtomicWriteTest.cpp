#include "platform/AtomicWrite.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <system_error>

#include "platform/FileReading.h"
#include "tests/support/OrdinaryUser.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

using testing::ElementsAre;

std::string refusalOf(const std::string& path, std::string_view bytes) {
    try {
        writeFileAtomically(path, bytesOf(bytes));
    } catch (const std::system_error& error) {
        return error.what();
    }
    return "written";
}

/// A full disk for this process: no file may grow beyond the limit.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t limitBytes) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{limitBytes, before_.rlim_max};
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }

private:
    rlimit before_{};
    void (*handler_)(int) = SIG_DFL;
};

TEST(AtomicWrite, MakesANewFileThatEveryoneMayRead) {
    const TemporaryFolder folder;
    for (const Durability durability : {Durability::ordinary, Durability::flushedToDisk}) {
        writeFileAtomically(folder / "file", bytesOf("a\nb"), durability);
        EXPECT_EQ(readTestFile(folder / "file"), "a\nb");
        struct stat status {};
        ASSERT_EQ(::stat((folder / "file").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0644U);
        EXPECT_THAT(namesInFolder(folder.path()), ElementsAre("file"));
    }
}

TEST(AtomicWrite, ReplacesALongerFileWhole) {
    const TemporaryFolder folder;
    writeTestFile(folder / "file", std::string(10'000, 'x'));
    writeFileAtomically(folder / "file", bytesOf("short"));
    EXPECT_EQ(readTestFile(folder / "file"), "short");
    writeFileAtomically(folder / "file", {});
    EXPECT_EQ(readTestFile(folder / "file"), "");
}

TEST(AtomicWrite, LeavesTheOldBytesToThoseWhoHaveThemOpen) {
    const TemporaryFolder folder;
    writeTestFile(folder / "file", "old");
    RegularFile reader(folder / "file");
    writeFileAtomically(folder / "file", bytesOf("new"));
    const FileBytes bytes = reader.readAll(10);
    EXPECT_EQ(bytes.span()[0], std::byte{'o'});
}

// fault: a link is in the place of the file
TEST(AtomicWrite, ReplacesALinkAndNeverFollowsIt) {
    const TemporaryFolder folder;
    writeTestFile(folder / "victim", "precious");
    std::filesystem::create_symlink("victim", folder / "report");
    writeFileAtomically(folder / "report", bytesOf("report"));
    EXPECT_EQ(readTestFile(folder / "victim"), "precious");
    EXPECT_EQ(readTestFile(folder / "report"), "report");
    EXPECT_FALSE(std::filesystem::is_symlink(folder / "report"));
}

// fault: the disk is full in the middle of the file
// seen: "write …: File too large"
TEST(AtomicWrite, LeavesTheOldBytesAndNoTemporaryFileWhenTheDiskIsFull) {
    const TemporaryFolder folder;
    writeTestFile(folder / "file", "old");
    std::string refusal;
    {
        const FileSizeLimit full(4096);
        refusal = refusalOf(folder / "file", std::string(10'000, 'x'));
    }
    EXPECT_EQ(refusal, "write " + (folder / "file") + ": File too large");
    EXPECT_EQ(readTestFile(folder / "file"), "old");
    EXPECT_THAT(namesInFolder(folder.path()), ElementsAre("file"));
}

// fault: a folder is in the place of the file
// seen: "replace …: Is a directory"
TEST(AtomicWrite, NeverWritesOverAFolder) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "folder");
    EXPECT_EQ(refusalOf(folder / "folder", "x"), "replace " + (folder / "folder") + ": Is a directory");
    EXPECT_THAT(namesInFolder(folder.path()), ElementsAre("folder"));
}

// fault: the folder of the file is missing
// seen: "create …: No such file or directory"
TEST(AtomicWrite, RefusesAMissingFolder) {
    const TemporaryFolder folder;
    EXPECT_EQ(refusalOf(folder / "none/file", "x"),
              "create " + (folder / "none/file") + ": No such file or directory");
}

TEST(AtomicWrite, RefusesAPathWithANul) {
    using namespace std::string_literals;
    const TemporaryFolder folder;
    EXPECT_EQ(refusalOf((folder / "a") + "\0b"s, "x"), "create " + (folder / "a") + "?b: Invalid argument");
    EXPECT_THAT(namesInFolder(folder.path()), testing::IsEmpty());
}

// fault: the folder may not be written
// seen: "create …: Permission denied"
TEST(AtomicWriteDeathTest, LeavesTheOldBytesAndNoTemporaryFileInAFolderThatMayNotBeWritten) {
    const TemporaryFolder folder;
    writeTestFile(folder / "file", "old");
    ASSERT_EQ(::chmod(folder.path().c_str(), 0555), 0);
    EXPECT_EXIT(failAsOrdinaryUser([&] { writeFileAtomically(folder / "file", bytesOf("new")); }),
                testing::ExitedWithCode(0), "create .*/file: Permission denied");
    EXPECT_EQ(readTestFile(folder / "file"), "old");
    EXPECT_THAT(namesInFolder(folder.path()), ElementsAre("file"));
    ::chmod(folder.path().c_str(), 0755);
}

}  // namespace
}  // namespace qelmo
