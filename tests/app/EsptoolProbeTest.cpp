#include "app/EsptoolProbe.h"

#include <gtest/gtest.h>

#include <map>

#include "tests/support/ErrorOf.h"
#include "tests/support/ProcessResources.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

constexpr const char* python = "/usr/bin/python3";

TEST(EsptoolVersion, IsTheLastNonEmptyLineUnchanged) {
    const std::map<std::string, std::string> versions{{"esptool.py v4.7.0\n4.7.0\n", "4.7.0"},
                                                      {"banner\n4.7.0", "4.7.0"},
                                                      {"4.7.0", "4.7.0"},
                                                      {"banner\r\n4.7.0\r\n\r\n\n", "4.7.0"},
                                                      {"banner\n \t4.7.0 \t\n", " \t4.7.0 \t"},
                                                      {"banner\n  \n", "  "},
                                                      {"", "unknown"},
                                                      {"\n\r\n\u2028\v", "unknown"}};
    for (const auto& [output, version] : versions) EXPECT_EQ(versionFromOutput(output), version) << output;
}

TEST(EsptoolVersion, EndsAtEveryLineSeparatorAndAtNothingElse) {
    for (const std::string separator : {"\n", "\v", "\f", "\r", "\u0085", "\u2028", "\u2029"})
        EXPECT_EQ(versionFromOutput("banner" + separator + "4.7.0" + separator + separator), "4.7.0")
            << testing::PrintToString(separator);
    for (const std::string other : {"\t", " ", "\u00A0", "\x1C", "\u2027", "\u0084"})
        EXPECT_EQ(versionFromOutput("4" + other + "7"), "4" + other + "7");
}

class EsptoolProbe : public testing::Test {
protected:
    /// The version found with this Python script as the tool, or the text of the error.
    [[nodiscard]] std::string probed(const std::string& script) const {
        writeTestFile(tool, script);
        std::string version;
        const std::string error = errorOf([&] { version = esptoolVersion(python, tool); });
        EXPECT_TRUE(before.areBack());
        return error + version;
    }

    const TemporaryFolder folder;
    const std::string tool = folder / "my \u00E9sptool \xFF.py";
    const ProcessResources before = ProcessResources::now();
};

TEST_F(EsptoolProbe, RunsTheToolWithItsVersionCommandAndNothingElse) {
    EXPECT_EQ(probed("import os; os.write(1, open('/proc/self/cmdline', 'rb').read().replace(b'\\0', b'|'))"),
              "/usr/bin/python3|" + folder.path() + "/my \u00E9sptool \uFFFD.py|version|");
}

// fault: the tool prints only to standard error, or bytes that are not text
TEST_F(EsptoolProbe, ReadsBothStreamsAsText) {
    EXPECT_EQ(probed("import sys; print('banner', flush=True); print('4.7.0', file=sys.stderr)"), "4.7.0");
    EXPECT_EQ(probed("import os; os.write(1, b'4.7\\xFF')"), "4.7\uFFFD");
}

// fault: the tool exits with a status other than 0, or a signal ends it
// seen: "Espressif tool check failed:"
TEST_F(EsptoolProbe, FailsWithTheWholeOutputUnlessTheStatusIsZero) {
    const std::string failed = "Espressif tool check failed: ";
    EXPECT_EQ(probed("import sys; print(' one\\r\\n\\ntwo '); sys.exit(255)"), failed + " one\r\n\ntwo \n");
    EXPECT_EQ(probed("import os; print('so far', flush=True); os.kill(os.getpid(), 9)"), failed + "so far\n");
}

}  // namespace
}  // namespace qelmo
