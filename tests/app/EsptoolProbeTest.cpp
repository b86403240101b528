#include "app/EsptoolProbe.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <system_error>

#include "release/FlasherFailure.h"
#include "tests/support/ProcessResources.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

using namespace std::string_literals;

/// The version that the probe finds when the tool is this python script.
std::string probed(const std::string& script, const std::string& name = "esptool.py") {
    const TemporaryFolder folder;
    writeTestFile(folder / name, script);
    return esptoolVersion(folder / name);
}

std::string failureOf(const std::string& script) {
    try {
        return "version " + probed(script);
    } catch (const FlasherFailure& failure) {
        return failure.message;
    }
}

TEST(EsptoolVersion, IsTheLastLineBehindABanner) {
    EXPECT_EQ(versionFromOutput("esptool.py v4.7.0\n4.7.0\n"), "4.7.0");
    EXPECT_EQ(probed("print('esptool.py v4.7.0'); print('4.7.0')"), "4.7.0");
}

TEST(EsptoolVersion, IsALastLineWithoutALineFeedToo) {
    EXPECT_EQ(versionFromOutput("banner\n4.7.0"), "4.7.0");
    EXPECT_EQ(versionFromOutput("4.7.0"), "4.7.0");
}

TEST(EsptoolVersion, NeverHoldsALineSeparator) {
    EXPECT_EQ(versionFromOutput("banner\r\n4.7.0\r\n\r\n\n"), "4.7.0");
    for (const std::string separator : {"\n", "\v", "\f", "\r", "\u0085", "\u2028", "\u2029"})
        EXPECT_EQ(versionFromOutput("banner" + separator + "4.7.0" + separator + separator), "4.7.0")
            << testing::PrintToString(separator);
}

TEST(EsptoolVersion, EndsAtNoOtherCharacter) {
    for (const std::string text : {"4\t7", "4 7",
                                   "4\u00A0"
                                   "7",
                                   "4\x1C"
                                   "7",
                                   "4\u2027"
                                   "7",
                                   "4\u0084"
                                   "7"})
        EXPECT_EQ(versionFromOutput(text), text);
}

TEST(EsptoolVersion, KeepsSpacesAndTabsAtBothEnds) {
    EXPECT_EQ(versionFromOutput("banner\n \t4.7.0 \t\n"), " \t4.7.0 \t");
    EXPECT_EQ(versionFromOutput("banner\n  \n"), "  ");
}

// fault: the tool prints no version
// seen: "unknown"
TEST(EsptoolVersion, IsUnknownWhenThereIsNoLine) {
    EXPECT_EQ(versionFromOutput(""), "unknown");
    EXPECT_EQ(versionFromOutput("\n\r\n\u2028\v"), "unknown");
    EXPECT_EQ(probed("pass"), "unknown");
}

TEST(EsptoolProbe, ReadsWhatTheToolWritesToStandardErrorOnly) {
    EXPECT_EQ(probed("import sys; print('4.7.0', file=sys.stderr)"), "4.7.0");
}

TEST(EsptoolProbe, RunsTheToolWithItsVersionCommandAndNothingElse) {
    const TemporaryFolder folder;
    const std::string tool = folder / "my \u00E9sptool \xFF.py";
    writeTestFile(tool,
                  "import os; os.write(1, open('/proc/self/cmdline', 'rb').read().replace(b'\\0', b'|'))");
    EXPECT_EQ(esptoolVersion(tool),
              "/usr/bin/python3|" + (folder / "my \u00E9sptool \uFFFD.py") + "|version|");
}

TEST(EsptoolProbe, LeavesEnvironmentAndWorkingDirectoryAlone) {
    const ScopedEnvironment variable("QELMO_TEST_VARIABLE", "as it is");
    const ScopedEnvironment unbuffered("PYTHONUNBUFFERED", std::nullopt);
    EXPECT_EQ(probed("import os; print(os.environ['QELMO_TEST_VARIABLE'], os.getcwd())"),
              "as it is " + std::filesystem::current_path().string());
    EXPECT_EQ(probed("import os; print(os.environ.get('PYTHONUNBUFFERED', 'not set'))"), "not set");
}

// fault: the tool prints bytes that are no text
TEST(EsptoolProbe, ReplacesBytesThatAreNoText) {
    EXPECT_EQ(probed("import os; os.write(1, b'4.7\\xFF')"), "4.7\uFFFD");
    EXPECT_EQ(failureOf("import os; os.write(1, b'4.7\\xFF'); os._exit(1)"),
              "Espressif tool check failed: 4.7\uFFFD");
}

// fault: the tool ends with a status that is not 0
// seen: "Espressif tool check failed:"
TEST(EsptoolProbe, FailsWithTheWholeOutputWhenTheStatusIsNotZero) {
    EXPECT_EQ(failureOf("import sys; print(' one\\r\\n\\ntwo '); sys.exit(1)"),
              "Espressif tool check failed:  one\r\n\ntwo \n");
    EXPECT_EQ(failureOf("import os; os.write(1, b'a\\0b'); os._exit(255)"),
              "Espressif tool check failed: a\0b"s);
}

TEST(EsptoolProbe, FailsWithNothingBehindTheBlankWhenThereIsNoOutput) {
    EXPECT_EQ(failureOf("import sys; sys.exit(3)"), "Espressif tool check failed: ");
}

// fault: a signal ends the tool
// seen: "Espressif tool check failed:"
TEST(EsptoolProbe, FailsWhenASignalEndsTheTool) {
    EXPECT_EQ(failureOf("import os; print('so far', flush=True); os.kill(os.getpid(), 9)"),
              "Espressif tool check failed: so far\n");
}

// fault: the interpreter cannot be started
// seen: "start /usr/bin/python3: Argument list too long"
TEST(EsptoolProbe, PassesOnWhyTheInterpreterCannotBeStarted) {
    // No environment may hold so long a value; the system refuses to start anything with it.
    const ScopedEnvironment tooLong("QELMO_TEST_TOO_LONG", std::string(200'000, 'x'));
    try {
        (void)probed("print('4.7.0')");
        FAIL() << "started";
    } catch (const std::system_error& error) {
        EXPECT_STREQ(error.what(), "start /usr/bin/python3: Argument list too long");
    }
}

TEST(EsptoolProbe, LeavesNothingOpenWhetherItPassesOrFails) {
    const auto before = ProcessResources::now();
    (void)probed("print('4.7.0')");
    (void)failureOf("import sys; sys.exit(1)");
    const auto after = ProcessResources::now();
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.threads, before.threads);
}

}  // namespace
}  // namespace qelmo
