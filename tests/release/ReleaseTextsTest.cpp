#include "release/ReleaseTexts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/ReleaseFixture.h"

namespace qelmo {
namespace {

using testing::ElementsAre;

/// SHA-256 of the fixture's smallest image, computed with sha256sum(1).
const std::string digest = "f45c4a602c75191bc35777f929cfbeab8ca84a6b74a05e158a99c765f96798c9";

std::string verdictOf(const FlasherResources& release, bool userInitiated, const PreviousRelease& previous) {
    return validationReport(release, userInitiated, previous).front();
}

TEST(ReleaseTexts, SayWhichReleaseIsLoaded) {
    ReleaseFixture release;
    release.manifest.set("name", R"("Example")").set("version", R"("1.2.0")");
    EXPECT_EQ(releaseSummary(release.load()), "Example  //  1.2.0\n65537 bytes  \u2022  SHA-256 " +
                                                  digest.substr(0, 16) +
                                                  "\u2026  \u2022  ESP32-S3 / 8 MB / DIO / 80 MHz");
}

TEST(ReleaseTexts, TakeChipAndClockOfTheSummaryFromNoManifest) {
    ReleaseFixture release;
    release.manifest.set("flash.flashFrequency", R"("40m")");
    EXPECT_THAT(releaseSummary(release.load()), testing::EndsWith("ESP32-S3 / 8 MB / DIO / 80 MHz"));
}

TEST(ReleaseTexts, SayWhyValidationFailed) {
    EXPECT_EQ(releaseFailureSummary("The reason."), "RELEASE VALIDATION FAILED\nThe reason.");
}

TEST(ReleaseTexts, ReportFourLinesAtTheStart) {
    ReleaseFixture release;
    EXPECT_THAT(validationReport(release.load(), false, {}),
                ElementsAre("Embedded full image verified.", "SHA-256  " + digest, "Address   0x0",
                            "SD card   not accessed by this application"));
}

TEST(ReleaseTexts, ReportAVerifiedImageWhenTheUserDidNotAskOrNothingWasValidatedBefore) {
    ReleaseFixture release;
    const FlasherResources loaded = release.load();
    EXPECT_EQ(verdictOf(loaded, false, {"1.0.0", digest}), "Embedded full image verified.");
    EXPECT_EQ(verdictOf(loaded, true, {}), "Embedded full image verified.");
    EXPECT_EQ(verdictOf(loaded, true, {"1.0.0", std::nullopt}), "Embedded full image verified.");
}

TEST(ReleaseTexts, ReportACurrentBuildWhenDigestAndVersionAreTheSame) {
    ReleaseFixture release;
    EXPECT_EQ(verdictOf(release.load(), true, {"1.0.0", digest}), "Build already current: 1.0.0.");
}

TEST(ReleaseTexts, ReportANewBuildWhenTheVersionChanged) {
    ReleaseFixture release;
    EXPECT_EQ(verdictOf(release.load(), true, {"0.9", digest}), "NEW BUILD LOADED: 0.9 \u2192 1.0.0.");
}

TEST(ReleaseTexts, ReportANewBuildWhenOnlyTheBytesChanged) {
    ReleaseFixture release;
    EXPECT_EQ(verdictOf(release.load(), true, {"1.0.0", "00"}), "NEW BUILD LOADED: 1.0.0 \u2192 1.0.0.");
}

TEST(ReleaseTexts, ReportANewBuildAfterAPreviousOneWithoutAVersion) {
    ReleaseFixture release;
    EXPECT_EQ(verdictOf(release.load(), true, {std::nullopt, digest}),
              "NEW BUILD LOADED: previous \u2192 1.0.0.");
}

}  // namespace
}  // namespace qelmo
