#include "platform/Utf8.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "platform/Spawn.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

/// Every two bytes, and every four of the bytes at which a rule begins or ends, each on its own line.
std::string everySequence() {
    constexpr auto boundaries =
        std::to_array<int>({0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC1, 0xC2, 0xDF,
                            0xE0, 0xE1, 0xEC, 0xED, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xFF});
    std::string lines;
    const auto append = [&lines](std::initializer_list<int> bytes) {
        for (const int byte : bytes) lines += static_cast<char>(byte);
        lines += '\n';
    };
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) append({first, second});
    }
    for (const int first : boundaries) {
        for (const int second : boundaries) {
            for (const int third : boundaries) {
                for (const int fourth : boundaries) append({first, second, third, fourth});
            }
        }
    }
    return lines;
}

TEST(Utf8, AgreesWithPythonOnEveryTwoBytesAndOnFourAtEveryBoundary) {
    const TemporaryFolder folder;
    writeTestFile(folder / "bytes", everySequence());
    const std::string script =
        "import sys\n"
        "text = open(sys.argv[1], 'rb').read().decode('utf-8', 'replace')\n"
        "sys.stdout.buffer.write(text.encode())";
    const std::string expected =
        runToEnd("/usr/bin/python3", {"-c", script, folder / "bytes"}, ReadOutput::whileRunning).output;
    const std::string decoded = decodedUtf8(everySequence());
    const auto difference = std::mismatch(decoded.begin(), decoded.end(), expected.begin(), expected.end());
    EXPECT_TRUE(decoded == expected) << "after " << difference.first - decoded.begin() << " bytes";
}

TEST(ShownOnOneLine, ReplacesOnlyLineBreaksControlCharactersAndBidiControls) {
    EXPECT_EQ(shownOnOneLine("a\nb\rc\x1B[31md\x7F"), "a?b?c?[31md?");
    EXPECT_EQ(shownOnOneLine("a\u202Eb\u2066c\u2069"), "a?b?c?");
    EXPECT_EQ(shownOnOneLine("a\u0085b\u009B31mc\u2028d\u2029e\u009Ff"), "a?b?31mc?d?e?f");
    const std::string kept = "d\u00FCr \u00A0 \u2027 \u202F \u2065 \u206A \U0001F600";
    EXPECT_EQ(shownOnOneLine(kept + "\xFF"), kept + "\uFFFD");
}

}  // namespace
}  // namespace qelmo
