#include "release/FlasherResources.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cctype>

#include "tests/support/OrdinaryUser.h"
#include "tests/support/ProcessResources.h"
#include "tests/support/ReleaseFixture.h"

namespace qelmo {
namespace {

constexpr const char* wrongDigest = "The embedded firmware checksum is not trusted.";

TEST(ReleaseValidation, GivesTheManifestThePathsAsWrittenAndTheComputedDigest) {
    ReleaseFixture release;
    const std::string digest = ReleaseFixture::digestOf(ReleaseFixture::smallestImage());
    std::string upperCase = digest;
    for (char& unit : upperCase) unit = static_cast<char>(std::toupper(static_cast<unsigned char>(unit)));
    release.manifest.set("binary.sha256", '"' + upperCase + '"');
    release.manifest.set("binary.path", R"("../Resources//release-complete.bin")");
    const FlasherResources resources = release.load();
    EXPECT_EQ(resources.manifest.name, "Varnox");
    EXPECT_EQ(resources.manifest.binary.sha256, upperCase);
    EXPECT_EQ(resources.firmwareURL, release.resources() + "/../Resources//release-complete.bin");
    EXPECT_EQ(resources.esptoolURL, release.tool());
    EXPECT_EQ(resources.checksum, digest);
}

TEST(ReleaseValidation, ReadsTheFilesAnewOnEveryCallAndLeavesNoneOpen) {
    ReleaseFixture release;
    const auto before = ProcessResources::now();
    const FlasherResources first = release.load();
    std::string image = ReleaseFixture::smallestImage();
    image[1] = 'x';
    release.setImage(image);
    release.manifest.set("version", R"("2.0.0")");
    const FlasherResources second = release.load();
    EXPECT_NE(first.checksum, second.checksum);
    EXPECT_EQ(first.manifest.version, "1.0.0");
    EXPECT_EQ(second.manifest.version, "2.0.0");
    release.manifest.set("binary.sha256", R"("00")");
    EXPECT_EQ(release.failure(), wrongDigest);
    EXPECT_EQ(ProcessResources::now().descriptors, before.descriptors);
}

// fault: the user may not read the manifest, the image or the tool, or may not enter their folder
// seen: "The embedded flash manifest is missing.", "open …/release-complete.bin: Permission denied",
//     "The local Espressif tool is missing. Run BUILD-FULL-MAC.command once."
TEST(ReleaseValidationDeathTest, NeedsTheRightToReadEachFile) {
    const ReleaseFixture release;
    release.writeManifest(release.manifest.text());
    const auto expectWithout = [&release](const std::string& path, const char* refusal) {
        ASSERT_EQ(::chmod(path.c_str(), 0), 0);
        EXPECT_EXIT(failAsOrdinaryUser([&] { (void)release.loadFiles(); }), testing::ExitedWithCode(0),
                    refusal);
        ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
    };
    expectWithout(release.resources(), "^The embedded flash manifest is missing.$");
    expectWithout(release.manifestFile(), "^The embedded flash manifest is missing.$");
    expectWithout(release.image(), "^open .*/release-complete.bin: Permission denied$");
    expectWithout(release.tool(), "^The local Espressif tool is missing. Run BUILD-FULL-MAC.command once.$");
}

}  // namespace
}  // namespace qelmo
