#include "platform/FileReading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "tests/support/OrdinaryUser.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

using namespace std::string_literals;

constexpr std::uint64_t noLimit = 1ULL << 40;

std::string contentOf(const std::string& path, std::uint64_t limitBytes = noLimit) {
    const FileBytes bytes = RegularFile(path).readAll(limitBytes);
    return {reinterpret_cast<const char*>(bytes.span().data()), bytes.span().size()};
}

std::string refusalOf(const std::string& path, std::uint64_t limitBytes = noLimit) {
    try {
        (void)contentOf(path, limitBytes);
    } catch (const std::system_error& error) {
        return error.what();
    }
    return "read";
}

TEST(FileReading, ReadsEveryByteOfAFile) {
    const TemporaryFolder folder;
    const std::string bytes = "a\0b\n\xFF"s + std::string(100'000, 'x');
    writeTestFile(folder / "file", bytes);
    EXPECT_EQ(RegularFile(folder / "file").sizeBytes(), bytes.size());
    EXPECT_EQ(contentOf(folder / "file"), bytes);
}

TEST(FileReading, ReadsAnEmptyFile) {
    const TemporaryFolder folder;
    writeTestFile(folder / "empty", "");
    EXPECT_EQ(RegularFile(folder / "empty").sizeBytes(), 0U);
    EXPECT_EQ(contentOf(folder / "empty", 0), "");
}

TEST(FileReading, FollowsALinkAndTakesAnyName) {
    const TemporaryFolder folder;
    writeTestFile(folder / "a b\xFF\n", "text");
    std::filesystem::create_symlink("a b\xFF\n", folder / "link");
    EXPECT_EQ(contentOf(folder / "a b\xFF\n"), "text");
    EXPECT_EQ(contentOf(folder / "link"), "text");
}

TEST(FileReading, ReadsAFileOfExactlyTheLimitAndRefusesOneByteMore) {
    const TemporaryFolder folder;
    writeTestFile(folder / "file", "12345");
    EXPECT_EQ(contentOf(folder / "file", 5), "12345");
    EXPECT_EQ(refusalOf(folder / "file", 4), "read " + (folder / "file") + ": File too large");
}

// fault: a file is missing
// seen: "open …: No such file or directory"
TEST(FileReading, RefusesAMissingFile) {
    const TemporaryFolder folder;
    EXPECT_EQ(refusalOf(folder / "none"), "open " + (folder / "none") + ": No such file or directory");
}

// fault: a folder is in the place of a file
// seen: "read …: Is a directory"
TEST(FileReading, RefusesAFolder) {
    const TemporaryFolder folder;
    EXPECT_EQ(refusalOf(folder.path()), "read " + folder.path() + ": Is a directory");
}

// fault: a FIFO is in the place of a file
// seen: "read (not a regular file) …: Invalid argument"
TEST(FileReading, RefusesAFifoWithoutWaitingForItsWriter) {
    const TemporaryFolder folder;
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(refusalOf(folder / "fifo"),
              "read (not a regular file) " + (folder / "fifo") + ": Invalid argument");
}

// fault: a device is in the place of a file
// seen: "read (not a regular file) /dev/null: Invalid argument"
TEST(FileReading, RefusesADevice) {
    EXPECT_EQ(refusalOf("/dev/null"), "read (not a regular file) /dev/null: Invalid argument");
}

TEST(FileReading, RefusesAPathWithANulInsteadOfOpeningItsBeginning) {
    const TemporaryFolder folder;
    writeTestFile(folder / "file", "text");
    const std::string path = (folder / "file") + "\0x"s;
    EXPECT_EQ(refusalOf(path), "open " + (folder / "file") + "?x: Invalid argument");
    EXPECT_FALSE(isReadable(path));
    EXPECT_FALSE(exists(path));
    EXPECT_FALSE(isFolder(folder.path() + "\0"s));
}

// fault: a file may not be read
// seen: "open …: Permission denied"
TEST(FileReadingDeathTest, RefusesAFileThatTheUserMayNotRead) {
    const TemporaryFolder folder;
    writeTestFile(folder / "secret", "text");
    ASSERT_EQ(::chmod((folder / "secret").c_str(), 0), 0);
    EXPECT_EXIT(failAsOrdinaryUser([&] { (void)contentOf(folder / "secret"); }), testing::ExitedWithCode(0),
                "open .*/secret: Permission denied");
}

// fault: a file becomes shorter while it is read
TEST(FileReading, GivesFewerBytesOfAFileThatBecameShorter) {
    const TemporaryFolder folder;
    writeTestFile(folder / "file", "12345");
    RegularFile file(folder / "file");
    std::filesystem::resize_file(folder / "file", 2);
    EXPECT_EQ(file.readAll(noLimit).span().size(), 2U);
}

// fault: a file becomes longer while it is read
// seen: "read (the file is being changed) …"
TEST(FileReading, RefusesAFileThatBecameLonger) {
    const TemporaryFolder folder;
    writeTestFile(folder / "file", "12345");
    RegularFile file(folder / "file");
    writeTestFile(folder / "file", "123456");
    try {
        (void)file.readAll(noLimit);
        FAIL() << "the file was read";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EAGAIN);
        EXPECT_THAT(error.what(), testing::StartsWith("read (the file is being changed) " + folder.path()));
    }
}

TEST(FileReading, KeepsReadingTheOpenedFileWhenAnotherTakesItsName) {
    const TemporaryFolder folder;
    writeTestFile(folder / "file", "old");
    RegularFile file(folder / "file");
    writeTestFile(folder / "new", "a longer one");
    std::filesystem::rename(folder / "new", folder / "file");
    EXPECT_EQ(file.readAll(noLimit).span().size(), 3U);
}

TEST(FileReading, TellsFilesAndFoldersApart) {
    const TemporaryFolder folder;
    writeTestFile(folder / "file", "");
    EXPECT_TRUE(isReadable(folder / "file"));
    EXPECT_TRUE(exists(folder / "file"));
    EXPECT_FALSE(isFolder(folder / "file"));
    EXPECT_TRUE(isFolder(folder.path()));
    EXPECT_FALSE(isReadable(folder / "none"));
    EXPECT_FALSE(exists(folder / "none"));
    EXPECT_FALSE(isFolder(folder / "none"));
}

TEST(FileReading, ListsEveryNameOfAFolderTheHiddenOnesToo) {
    const TemporaryFolder folder;
    for (const char* name : {"b", ".hidden", "a b", "\xFF"}) writeTestFile(folder / name, "");
    EXPECT_THAT(namesInFolder(folder.path()), testing::UnorderedElementsAre("b", ".hidden", "a b", "\xFF"));
}

TEST(FileReading, NamesTheFolderThatItCannotList) {
    const TemporaryFolder folder;
    try {
        (void)namesInFolder(folder / "none");
        FAIL() << "the folder was listed";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.what(), "list " + (folder / "none") + ": No such file or directory");
    }
}

}  // namespace
}  // namespace qelmo
