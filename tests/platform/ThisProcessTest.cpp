#include "platform/ThisProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/ChildProcess.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

using namespace std::string_literals;

std::shared_ptr<ChildProcess> finished(const std::string& executable, std::vector<std::string> arguments) {
    auto process = ChildProcess::create(executable, std::move(arguments));
    process->launch();
    process->waitUntilExit();
    return process;
}

/// What the reporting process says of its streams when the shell starts it with `redirections`.
std::string streamsReport(const std::string& redirections) {
    const TemporaryFolder folder;
    const std::string command = R"(trap '' CHLD; exec "$0" streams "$1" )" + redirections;
    const auto shell = finished("/bin/sh", {"-c", command, QELMO_PROCESS_REPORT, folder / "report"});
    EXPECT_EQ(shell->terminationStatus(), 0);
    return readTestFile(folder / "report");
}

TEST(ThisProcess, KnowsItsArgumentsByteForByte) {
    const auto process =
        finished(QELMO_PROCESS_REPORT, {"arguments", "", "a b", "x\ny", "\xFF", "--self-test"});
    EXPECT_EQ(process->readToEndOfOutput(),
              QELMO_PROCESS_REPORT + "\0arguments\0\0a b\0x\ny\0\xFF\0--self-test\0"s);
}

TEST(ThisProcess, KnowsArgumentsThatAreLongerThanOneRead) {
    const std::string longArgument(10'000, 'a');
    const auto process = finished(QELMO_PROCESS_REPORT, {"arguments", longArgument, "b"});
    EXPECT_EQ(process->readToEndOfOutput(),
              QELMO_PROCESS_REPORT + "\0arguments\0"s + longArgument + "\0b\0"s);
}

TEST(ThisProcess, FindsAnArgumentOnlyAsAWhole) {
    const auto found = [](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "has");
        return finished(QELMO_PROCESS_REPORT, std::move(arguments))->terminationStatus() == 0;
    };
    EXPECT_TRUE(found({"--exact"}));
    EXPECT_TRUE(found({"other", "", "--exact", "more"}));
    for (const char* nearMiss :
         {"--exact=1", "--exac", "-exact", "---exact", "--EXACT", "--exact ", " --exact"})
        EXPECT_FALSE(found({nearMiss})) << nearMiss;
    EXPECT_FALSE(found({}));
}

TEST(ThisProcess, ListsItsEnvironment) {
    const ScopedEnvironment variable("QELMO_TEST_VARIABLE", "a=b\n\xFF");
    EXPECT_THAT(processEnvironment(), testing::Contains("QELMO_TEST_VARIABLE=a=b\n\xFF"));
}

TEST(ThisProcess, KnowsTheRealPathOfItsExecutable) {
    EXPECT_THAT(executablePath(), testing::MatchesRegex("/.*/qelmo_platform_tests"));
}

// fault: the standard streams are closed
// seen: "write standard output: Bad file descriptor"
TEST(ThisProcess, GivesClosedStreamsAPlaceWhereReadingAndWritingFail) {
    EXPECT_EQ(streamsReport("<&- >&- 2>&-"),
              "read 0: -1\n"
              "write 1: -1\n"
              "write 2: -1\n"
              "write standard output: Bad file descriptor\n"
              "next descriptor above 2: 1\n"
              "SIGCHLD default: 1\n"
              "SIGPIPE ignored: 1\n");
}

TEST(ThisProcess, LeavesOpenStreamsAsTheyAre) {
    EXPECT_EQ(streamsReport("</dev/null >/dev/null 2>/dev/null"),
              "read 0: 0\n"
              "write 1: 1\n"
              "write 2: 1\n"
              "written\n"
              "next descriptor above 2: 1\n"
              "SIGCHLD default: 1\n"
              "SIGPIPE ignored: 1\n");
}

// fault: both output streams are full
// seen: "write standard output: No space left on device"
TEST(ThisProcess, ReportsAFullStandardOutputAndKeepsAFullStandardErrorToItself) {
    EXPECT_THAT(streamsReport("</dev/null >/dev/full 2>/dev/full"),
                testing::HasSubstr("\nwrite standard output: No space left on device\n"));
}

}  // namespace
}  // namespace qelmo
