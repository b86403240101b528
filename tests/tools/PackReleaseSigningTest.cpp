#include "tools/pack-release/Signing.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/support/ErrorOf.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

/// A stand-in for Apple's tool. Logs its arguments, each in brackets, then does what the test says.
class PackReleaseSigning : public testing::Test {
protected:
    void standInDoes(const std::string& commands) {
        writeTestFile(tool, "#!/bin/sh\nprintf '[%s]' \"$@\" >>'" + calls + "'; echo >>'" + calls + "'\n" +
                                commands + "\n");
        ASSERT_EQ(::chmod(tool.c_str(), 0755), 0);
    }

    std::string errorOfSigning(const std::string& bundle = "Some Flasher.app") {
        return errorOf([&] {
            requireSigningTool(tool);
            signBundle(tool, bundle);
        });
    }

    TemporaryFolder folder;
    const std::string tool = folder / "codesign";
    const std::string calls = folder / "calls";
};

// The tool prints more than a pipe can hold.
TEST_F(PackReleaseSigning, SignsTheWholeBundleAdHocAndThenVerifiesIt) {
    standInDoes("head -c 300000 /dev/zero | tr '\\0' x");
    EXPECT_EQ(errorOfSigning("-v.app"), "");
    EXPECT_EQ(readTestFile(calls),
              "[--force][--deep][--sign][-][./-v.app]\n[--verify][--deep][--strict][./-v.app]\n");
}

// fault: the signing tool fails, the signature does not verify, or there is no signing tool
// seen: "the new release is in place, but signing the bundle failed: …", "bundles can be signed only on macOS"
TEST_F(PackReleaseSigning, SaysWhatFailedInTheToolsOwnWordsAndThatTheReleaseIsInPlace) {
    EXPECT_EQ(errorOfSigning(), "--sign: there is no " + tool +
                                    " here; bundles can be signed only on macOS, so leave out --sign");

    standInDoes("echo 'Some Flasher.app: bundle format unrecognized' >&2; exit 3");
    EXPECT_EQ(errorOfSigning(), "the new release is in place, but signing the bundle failed: " + tool +
                                    " exited with status 3: Some Flasher.app: bundle format unrecognized");

    standInDoes("[ \"$1\" != --verify ] || { echo 'a sealed resource is missing or invalid'; exit 1; }");
    EXPECT_EQ(errorOfSigning(), "the new release is in place, but verifying its signature failed: " + tool +
                                    " exited with status 1: a sealed resource is missing or invalid");
}

TEST_F(PackReleaseSigning, IsRequestedWithACommandThatAShellCanRun) {
    EXPECT_EQ(signingNotice("/tmp/Karl's $HOME.app"),
              "Sign it   the release was replaced, so the bundle must be signed again before it is given "
              "away:\n"
              "          /usr/bin/codesign --force --deep --sign - '/tmp/Karl'\\''s $HOME.app'\n");
}

}  // namespace
}  // namespace qelmo
