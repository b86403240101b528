#include "platform/AtomicWrite.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>

#include "platform/FileReading.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/ErrorOf.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using testing::ElementsAre;

class AtomicWrite : public testing::Test {
protected:
    static std::string refusalOf(const std::string& path, std::string_view bytes) {
        return errorOf([&] { writeFileAtomically(path, bytesOf(bytes)); });
    }
    [[nodiscard]] std::vector<std::string> names() const { return namesInFolder(folder.path()); }

    const TemporaryFolder folder;
    const std::string file = folder / "file";
};

TEST_F(AtomicWrite, MakesOrReplacesAFileThatEveryoneMayRead) {
    for (const std::string& bytes : {std::string(10'000, 'x'), "a\nb"s, ""s}) {
        writeFileAtomically(file, bytesOf(bytes));
        EXPECT_EQ(readTestFile(file), bytes);
        EXPECT_EQ(fs::status(file).permissions(), fs::perms(0644));
        EXPECT_THAT(names(), ElementsAre("file"));
    }
}

// fault: the disk fills up in the middle of the file
// seen: "write …: File too large"
TEST_F(AtomicWrite, KeepsTheOldFileAndLeavesNoTemporaryOneWhenTheDiskIsFull) {
    writeTestFile(file, "old");
    auto* const before = std::signal(SIGXFSZ, SIG_IGN);
    std::string refusal;
    {
        const ResourceLimit full(RLIMIT_FSIZE, 4096);
        refusal = refusalOf(file, std::string(10'000, 'x'));
    }
    std::signal(SIGXFSZ, before);
    EXPECT_EQ(refusal, "write " + file + ": File too large");
    EXPECT_EQ(readTestFile(file), "old");
    EXPECT_THAT(names(), ElementsAre("file"));
}

// fault: a folder has the file's name, or the file's folder is missing
// seen: "replace …: Is a directory", "create …: No such file or directory"
TEST_F(AtomicWrite, LeavesNoTemporaryFileWhenTheFileCannotBeWritten) {
    fs::create_directory(file);
    EXPECT_EQ(refusalOf(file, "x"), "replace " + file + ": Is a directory");
    EXPECT_EQ(refusalOf(folder / "none/x", "x"),
              "create " + folder.path() + "/none/x: No such file or directory");
    EXPECT_EQ(refusalOf((folder / "a") + "\0b"s, "x"), "create " + folder.path() + "/a?b: Invalid argument");
    EXPECT_THAT(names(), ElementsAre("file"));
}

}  // namespace
}  // namespace qelmo
