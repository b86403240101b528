#include "release/ReleaseTexts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/ReleaseFixture.h"

namespace qelmo {
namespace {

/// SHA-256 of the fixture's smallest image, computed with sha256sum(1).
const std::string digest = "f45c4a602c75191bc35777f929cfbeab8ca84a6b74a05e158a99c765f96798c9";

TEST(ReleaseTexts, DescribeTheReleaseWithAFixedChipAndClock) {
    ReleaseFixture release;
    release.manifest.set("name", R"("Example")").set("version", R"("1.2.0")");
    release.manifest.set("flash.flashFrequency", R"("40m")");
    EXPECT_EQ(releaseSummary(release.load()), "Example  //  1.2.0\n65537 bytes  \u2022  SHA-256 " +
                                                  digest.substr(0, 16) +
                                                  "\u2026  \u2022  ESP32-S3 / 8 MB / DIO / 80 MHz");
}

TEST(ReleaseTexts, ReportFourLinesAtTheStart) {
    EXPECT_THAT(validationReport(ReleaseFixture().load(), false, {}),
                testing::ElementsAre("Embedded full image verified.", "SHA-256  " + digest, "Address   0x0",
                                     "SD card   not accessed by this application"));
}

TEST(ReleaseTexts, BeginWithAComparisonWithThePreviousRelease) {
    const FlasherResources release = ReleaseFixture().load();
    const struct {
        bool userInitiated;
        PreviousRelease previous;
        const char* verdict;
    } reports[] = {{false, {"1.0.0", digest}, "Embedded full image verified."},
                   {true, {}, "Embedded full image verified."},
                   {true, {"1.0.0", std::nullopt}, "Embedded full image verified."},
                   {true, {"1.0.0", digest}, "Build already current: 1.0.0."},
                   {true, {"0.9", digest}, "NEW BUILD LOADED: 0.9 \u2192 1.0.0."},
                   {true, {"1.0.0", "00"}, "NEW BUILD LOADED: 1.0.0 \u2192 1.0.0."},
                   {true, {std::nullopt, digest}, "NEW BUILD LOADED: previous \u2192 1.0.0."}};
    for (const auto& [userInitiated, previous, verdict] : reports)
        EXPECT_EQ(validationReport(release, userInitiated, previous).front(), verdict);
}

}  // namespace
}  // namespace qelmo
