#include "platform/FileReading.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "tests/support/ErrorOf.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;

std::string textOf(const FileBytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.span().data()), bytes.span().size()};
}

class FileReading : public testing::Test {
protected:
    static std::string readingOf(const std::string& path) {
        std::string text;
        const std::string error = errorOf([&] { text = textOf(RegularFile(path).readAll(1ULL << 40)); });
        return error + text;
    }

    const TemporaryFolder folder;
    const std::string file = folder / "a b\xFF\n";
    const std::string shownFile = folder / "a b\uFFFD?";
};

TEST_F(FileReading, ReadsEveryByteWhateverTheLength) {
    const std::string bytes = "a\0b\n\xFF"s + std::string(5 << 20, 'x');
    writeTestFile(file, bytes);
    fs::create_symlink(file, folder / "link");
    EXPECT_EQ(readingOf(file), bytes);
    EXPECT_EQ(readingOf(folder / "link"), bytes);
    EXPECT_EQ(RegularFile(file).sizeBytes(), bytes.size());
}

// fault: a file is missing, or its name is that of a folder, a FIFO or a device
// seen: "open …: No such file or directory", "read …: Is a directory",
//     "read (not a regular file) …: Invalid argument"
TEST_F(FileReading, RefusesAnythingButARegularFileWithoutOpeningIt) {
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(readingOf(folder / "none"), "open " + folder.path() + "/none: No such file or directory");
    EXPECT_EQ(readingOf(folder.path()), "read " + folder.path() + ": Is a directory");
    EXPECT_EQ(readingOf(folder / "fifo"),
              "read (not a regular file) " + folder.path() + "/fifo: Invalid argument");
    EXPECT_EQ(readingOf("/dev/null"), "read (not a regular file) /dev/null: Invalid argument");
}

// fault: a file becomes shorter or longer, or is replaced by another, while it is read
// seen: "read (the file is being changed) …"
TEST_F(FileReading, ReadsTheFileThatItOpenedAndFailsIfThatBecameLonger) {
    const auto readingAfter = [&](const std::function<void()>& change) {
        writeTestFile(file, "12345");
        RegularFile opened(file);
        change();
        std::string text;
        const std::string error = errorOf([&] { text = textOf(opened.readAll(1000)); });
        return error + text;
    };
    EXPECT_EQ(readingAfter([&] { fs::resize_file(file, 2); }), "12");
    EXPECT_THAT(readingAfter([&] { writeTestFile(file, "123456"); }),
                testing::StartsWith("read (the file is being changed) " + shownFile + ": "));
    writeTestFile(folder / "new", "a longer one");
    EXPECT_EQ(readingAfter([&] { fs::rename(folder / "new", file); }), "12345");
}

}  // namespace
}  // namespace qelmo
