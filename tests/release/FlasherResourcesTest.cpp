#include "release/FlasherResources.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <type_traits>

#include "release/FlasherFailure.h"
#include "tests/support/OrdinaryUser.h"
#include "tests/support/ProcessResources.h"
#include "tests/support/ReleaseFixture.h"

namespace qelmo {
namespace {

namespace fs = std::filesystem;

// Only `load` makes one, and nobody changes one.
static_assert(!std::is_default_constructible_v<FlasherResources>);
static_assert(
    !std::is_constructible_v<FlasherResources, FlashManifest, std::string, std::string, std::string>);
static_assert(!std::is_aggregate_v<FlasherResources>);
static_assert(std::is_copy_constructible_v<FlasherResources> && !std::is_copy_assignable_v<FlasherResources>);
static_assert(std::is_const_v<decltype(FlasherResources::manifest)> &&
              std::is_const_v<decltype(FlasherResources::firmwareURL)> &&
              std::is_const_v<decltype(FlasherResources::esptoolURL)> &&
              std::is_const_v<decltype(FlasherResources::checksum)>);

constexpr const char* manifestMissing = "The embedded flash manifest is missing.";
constexpr const char* wrongSchema = "The embedded flash manifest version is unsupported.";
constexpr const char* wrongChip = "This release is not locked to ESP32-S3.";
constexpr const char* wrongAddress = "The complete firmware must flash at address 0x0.";
constexpr const char* wrongGeometry = "The embedded flash geometry is not Cardputer ADV safe.";
constexpr const char* wrongSize = "The embedded firmware size does not match its manifest.";
constexpr const char* incompleteImage = "The embedded file is not a complete QELMO firmware image.";
constexpr const char* wrongDigest = "The embedded firmware checksum is not trusted.";
constexpr const char* toolMissing = "The local Espressif tool is missing. Run BUILD-FULL-MAC.command once.";

std::string upperCase(std::string text) {
    for (char& unit : text) unit = static_cast<char>(std::toupper(static_cast<unsigned char>(unit)));
    return text;
}

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

void expectManifestMissing(const ReleaseFixture& release) {
    EXPECT_THAT([&] { (void)FlasherResources::load(release.bundle()); },
                testing::Throws<FlasherFailure>(testing::Field(&FlasherFailure::message, manifestMissing)));
}

TEST(ReleaseValidation, PassesTheSmallestCompleteImageOf65537Bytes) {
    ReleaseFixture release;
    const FlasherResources resources = release.load();
    EXPECT_EQ(resources.manifest.name, "Varnox");
    EXPECT_EQ(resources.manifest.binary.size, 65537);
    EXPECT_EQ(resources.firmwareURL, release.image());
    EXPECT_EQ(resources.esptoolURL, release.tool());
    EXPECT_EQ(resources.checksum, ReleaseFixture::digestOf(ReleaseFixture::smallestImage()));
    EXPECT_EQ(resources.checksum.size(), 64U);
}

// fault: the bundle has no resource folder
// seen: "The embedded flash manifest is missing."
TEST(ReleaseValidation, ReportsAMissingManifestWhenTheResourceFolderIsMissing) {
    ReleaseFixture release;
    fs::remove_all(release.resources());
    expectManifestMissing(release);
}

// fault: a file is in the place of the resource folder
// seen: "The embedded flash manifest is missing."
TEST(ReleaseValidation, ReportsAMissingManifestWhenTheResourceFolderIsAFile) {
    ReleaseFixture release;
    fs::remove_all(release.resources());
    writeTestFile(release.resources(), "");
    expectManifestMissing(release);
}

// fault: the manifest may not be read
// seen: "The embedded flash manifest is missing."
TEST(ReleaseValidationDeathTest, ReportsAManifestThatMayNotBeReadAsMissing) {
    ReleaseFixture release;
    release.writeManifest(release.manifest.text());
    ASSERT_EQ(::chmod(release.manifestFile().c_str(), 0), 0);
    EXPECT_EXIT(failAsOrdinaryUser([&] { (void)FlasherResources::load(release.bundle()); }),
                testing::ExitedWithCode(0), "^The embedded flash manifest is missing.$");
}

// fault: a folder is in the place of the manifest
// seen: "Is a directory"
TEST(ReleaseValidation, PassesTheFileLayersErrorForAManifestThatIsAFolder) {
    ReleaseFixture release;
    fs::create_directory(release.manifestFile());
    try {
        (void)FlasherResources::load(release.bundle());
        FAIL() << "loaded";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.what(), "read " + release.manifestFile() + ": Is a directory");
    }
}

// fault: the manifest cannot be decoded
// seen: "flash.baud: expected an integer, found a string"
TEST(ReleaseValidation, PassesTheDecodersError) {
    ReleaseFixture release;
    release.manifest.set("flash.baud", R"("921600")");
    EXPECT_EQ(release.failure(), "flash.baud: expected an integer, found a string");
    EXPECT_THROW((void)release.load(), ManifestDecodingError);
}

// fault: the manifest is larger than 2 MiB
// seen: "File too large"
TEST(ReleaseValidation, RefusesAManifestBeyondEverySensibleLength) {
    ReleaseFixture release;
    release.writeManifest("");
    fs::resize_file(release.manifestFile(), manifestLimitBytes + 1);
    try {
        (void)FlasherResources::load(release.bundle());
        FAIL() << "loaded";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.what(), "read " + release.manifestFile() + ": File too large");
    }
}

// fault: the manifest has another schema version
// seen: "The embedded flash manifest version is unsupported."
TEST(ReleaseValidation, RefusesEverySchemaButOne) {
    for (const char* version : {"0", "2", "-1", "9223372036854775807"}) {
        ReleaseFixture release;
        release.manifest.set("schemaVersion", version);
        EXPECT_EQ(release.failure(), wrongSchema);
    }
}

// fault: the release is for another chip, or its name is spelled otherwise
// seen: "This release is not locked to ESP32-S3."
TEST(ReleaseValidation, RefusesEveryChipFamilyThatIsNotWrittenExactly) {
    for (const char* chip :
         {"esp32-s3", "ESP32-S3 ", " ESP32-S3", "ESP32S3", "ESP32-S2", "ESP32-S3\\u0000", ""}) {
        ReleaseFixture release;
        release.manifest.set("chipFamily", quoted(chip));
        EXPECT_EQ(release.failure(), wrongChip) << chip;
    }
}

// fault: the image is to be written to another address
// seen: "The complete firmware must flash at address 0x0."
TEST(ReleaseValidation, RefusesEveryAddressButZero) {
    for (const char* offset : {"1", "-1", "65536"}) {
        ReleaseFixture release;
        release.manifest.set("binary.offset", offset);
        EXPECT_EQ(release.failure(), wrongAddress);
    }
}

// fault: the flash has another size or mode, or they are spelled otherwise
// seen: "The embedded flash geometry is not Cardputer ADV safe."
TEST(ReleaseValidation, RefusesEveryOtherGeometryAndEveryOtherSpellingOfIt) {
    for (const char* size : {"8mb", "4MB", "16MB", "8MB ", "keep", ""}) {
        ReleaseFixture release;
        release.manifest.set("flash.flashSize", quoted(size));
        EXPECT_EQ(release.failure(), wrongGeometry) << size;
    }
    for (const char* mode : {"DIO", "qio", "dio ", ""}) {
        ReleaseFixture release;
        release.manifest.set("flash.flashMode", quoted(mode));
        EXPECT_EQ(release.failure(), wrongGeometry) << mode;
    }
}

TEST(ReleaseValidation, PassesAnotherFrequencyAndNoErase) {
    ReleaseFixture release;
    release.manifest.set("flash.flashFrequency", R"("40m")").set("flash.eraseAllInternalFlash", "false");
    EXPECT_EQ(release.failure(), "");
}

TEST(ReleaseValidation, ChecksNoneOfTheOtherFields) {
    ReleaseFixture release;
    release.manifest.set("flash.baud", "-1")
        .set("flash.after", R"("")")
        .set("flash.confirmationText", R"("")");
    release.manifest.set("name", R"("")").set("version", R"("")").set("hardware", R"("")");
    EXPECT_EQ(release.failure(), "");
}

// fault: the image is missing
// seen: "open …/other.bin: No such file or directory"
TEST(ReleaseValidation, PassesTheFileLayersErrorForAMissingImage) {
    ReleaseFixture release;
    release.manifest.set("binary.path", R"("other.bin")");
    EXPECT_EQ(release.failure(), "open " + release.resources() + "/other.bin: No such file or directory");
    EXPECT_THROW((void)release.load(), std::system_error);
}

// fault: the image is a folder
// seen: "read …/: Is a directory"
TEST(ReleaseValidation, PassesTheFileLayersErrorForAnImageThatIsAFolder) {
    ReleaseFixture release;
    release.manifest.set("binary.path", R"("")");
    EXPECT_EQ(release.failure(), "read " + release.resources() + "/: Is a directory");
}

// fault: the image may not be read
// seen: "open …/release-complete.bin: Permission denied"
TEST(ReleaseValidationDeathTest, PassesTheFileLayersErrorForAnImageThatMayNotBeRead) {
    ReleaseFixture release;
    ASSERT_EQ(::chmod(release.image().c_str(), 0), 0);
    release.writeManifest(release.manifest.text());
    EXPECT_EXIT(failAsOrdinaryUser([&] { (void)FlasherResources::load(release.bundle()); }),
                testing::ExitedWithCode(0), "open .*/release-complete.bin: Permission denied");
}

TEST(ReleaseValidation, TakesTheImagePathExactlyAsWritten) {
    ReleaseFixture release;
    fs::rename(release.image(), release.bundle() + "/Contents/image \u00E9");
    release.manifest.set("binary.path", R"("../image \u00e9")");
    EXPECT_EQ(release.load().firmwareURL, release.resources() + "/../image \u00E9");
    release.manifest.set("binary.path", R"("/etc/hostname")");
    EXPECT_EQ(release.failure(), "open " + release.resources() + "//etc/hostname: No such file or directory");
    release.manifest.set("binary.path", R"("a\u0000\n")");
    EXPECT_EQ(release.failure(), "open " + release.resources() + "/a??: Invalid argument");
}

// fault: the image is not as long as the manifest says
// seen: "The embedded firmware size does not match its manifest."
TEST(ReleaseValidation, RefusesAnImageOfAnotherLength) {
    for (const char* size : {"65536", "65538", "0", "-65537", "9223372036854775807"}) {
        ReleaseFixture release;
        release.manifest.set("binary.size", size);
        EXPECT_EQ(release.failure(), wrongSize) << size;
    }
}

// fault: the image is empty
// seen: "The embedded file is not a complete QELMO firmware image."
TEST(ReleaseValidation, RefusesAnEmptyImageAsIncompleteWhenItsLengthMatches) {
    ReleaseFixture release;
    release.setImage("");
    EXPECT_EQ(release.failure(), incompleteImage);
}

// fault: the image ends before its application
// seen: "The embedded file is not a complete QELMO firmware image."
TEST(ReleaseValidation, RefusesAnImageOfExactly65536Bytes) {
    ReleaseFixture release;
    release.setImage(std::string(65536, '\xE9'));
    EXPECT_EQ(release.failure(), incompleteImage);
}

// fault: the image has no boot loader or no application
// seen: "The embedded file is not a complete QELMO firmware image."
TEST(ReleaseValidation, RefusesAnImageWithoutTheMagicAtTheStartOrAtTheApplication) {
    for (const std::size_t place : {std::size_t{0}, std::size_t{65536}}) {
        ReleaseFixture release;
        std::string image(70'000, '\xE9');
        image[place] = '\xE8';
        release.setImage(image);
        EXPECT_EQ(release.failure(), incompleteImage) << place;
    }
}

// fault: the image was damaged
// seen: "The embedded firmware checksum is not trusted."
TEST(ReleaseValidation, RefusesAnImageWithOneOtherBit) {
    ReleaseFixture release;
    std::string image = ReleaseFixture::smallestImage();
    image[1000] = 1;
    writeTestFile(release.image(), image);
    EXPECT_EQ(release.failure(), wrongDigest);
}

TEST(ReleaseValidation, PassesADigestInUpperCaseAndKeepsItInLowerCase) {
    ReleaseFixture release;
    const std::string digest = ReleaseFixture::digestOf(ReleaseFixture::smallestImage());
    ASSERT_NE(upperCase(digest), digest);
    release.manifest.set("binary.sha256", quoted(upperCase(digest)));
    const FlasherResources resources = release.load();
    EXPECT_EQ(resources.checksum, digest);
    EXPECT_EQ(resources.manifest.binary.sha256, upperCase(digest));
}

// fault: the manifest's digest is no plain digest
// seen: "The embedded firmware checksum is not trusted."
TEST(ReleaseValidation, RefusesADigestWithAnythingAroundIt) {
    const std::string digest = ReleaseFixture::digestOf(ReleaseFixture::smallestImage());
    for (const std::string& text : {digest + "\\n", " " + digest, digest + " ", "sha256:" + digest,
                                    digest + "\\u0000", digest.substr(1), std::string()}) {
        ReleaseFixture release;
        release.manifest.set("binary.sha256", quoted(text));
        EXPECT_EQ(release.failure(), wrongDigest) << text;
    }
}

// fault: the flashing tool is missing
// seen: "The local Espressif tool is missing. Run BUILD-FULL-MAC.command once."
TEST(ReleaseValidation, ReportsAMissingToolOnAValidRelease) {
    ReleaseFixture release;
    fs::remove(release.tool());
    EXPECT_EQ(release.failure(), toolMissing);
}

// fault: the flashing tool may not be read
// seen: "The local Espressif tool is missing. Run BUILD-FULL-MAC.command once."
TEST(ReleaseValidationDeathTest, ReportsAToolThatMayNotBeReadAsMissing) {
    ReleaseFixture release;
    release.writeManifest(release.manifest.text());
    ASSERT_EQ(::chmod(release.tool().c_str(), 0), 0);
    EXPECT_EXIT(failAsOrdinaryUser([&] { (void)FlasherResources::load(release.bundle()); }),
                testing::ExitedWithCode(0),
                "^The local Espressif tool is missing. Run BUILD-FULL-MAC.command once.$");
}

TEST(ReleaseValidation, NeedsAToolThatCanBeReadNotOneThatCanBeExecuted) {
    ReleaseFixture release;
    ASSERT_EQ(::chmod(release.tool().c_str(), 0444), 0);
    EXPECT_EQ(release.failure(), "");
}

TEST(ReleaseValidation, FindsTheToolBelowTheHomeOfTheMoment) {
    ReleaseFixture release;
    const ScopedEnvironment home("HOME", "/nonexistent home");
    EXPECT_EQ(release.failure(), toolMissing);
}

TEST(ReleaseValidation, ReportsTheSchemaBeforeTheChip) {
    ReleaseFixture release;
    release.manifest.set("schemaVersion", "2").set("chipFamily", R"("ESP32")");
    EXPECT_EQ(release.failure(), wrongSchema);
}

// fault: the image was damaged, and the tool is missing too
// seen: "The embedded firmware checksum is not trusted."
TEST(ReleaseValidation, ReportsTheDigestBeforeTheMissingTool) {
    ReleaseFixture release;
    release.manifest.set("binary.sha256", R"("00")");
    fs::remove(release.tool());
    EXPECT_EQ(release.failure(), wrongDigest);
}

// fault: everything is wrong at once
TEST(ReleaseValidation, ReportsTheFirstOfAllFaultsAndThenTheNext) {
    ReleaseFixture release;
    // Every fault at once; each is mended in turn and uncovers the next.
    release.manifest.set("schemaVersion", "2").set("chipFamily", R"("ESP32")").set("binary.offset", "1");
    release.manifest.set("flash.flashMode", R"("qio")").set("binary.path", R"("none")");
    release.manifest.set("binary.size", "1").set("binary.sha256", R"("00")").set("flash.after", "null");
    writeTestFile(release.image(), std::string(65537, 'x'));
    fs::remove(release.tool());

    EXPECT_EQ(release.failure(), "flash.after: expected a string, found null");
    release.manifest.set("flash.after", R"("hard_reset")");
    EXPECT_EQ(release.failure(), wrongSchema);
    release.manifest.set("schemaVersion", "1");
    EXPECT_EQ(release.failure(), wrongChip);
    release.manifest.set("chipFamily", R"("ESP32-S3")");
    EXPECT_EQ(release.failure(), wrongAddress);
    release.manifest.set("binary.offset", "0");
    EXPECT_EQ(release.failure(), wrongGeometry);
    release.manifest.set("flash.flashMode", R"("dio")");
    EXPECT_THAT(release.failure(), testing::StartsWith("open "));
    release.manifest.set("binary.path", R"("release-complete.bin")");
    EXPECT_EQ(release.failure(), wrongSize);
    release.manifest.set("binary.size", "65537");
    EXPECT_EQ(release.failure(), incompleteImage);
    writeTestFile(release.image(), ReleaseFixture::smallestImage());
    EXPECT_EQ(release.failure(), wrongDigest);
    release.setImage(ReleaseFixture::smallestImage());
    EXPECT_EQ(release.failure(), toolMissing);
    writeTestFile(release.tool(), "");
    EXPECT_EQ(release.failure(), "");
}

TEST(ReleaseValidation, ReadsTheFilesAnewOnEveryCall) {
    ReleaseFixture release;
    const FlasherResources first = release.load();
    std::string image = ReleaseFixture::smallestImage();
    image[1] = 'x';
    release.setImage(image);
    release.manifest.set("version", R"("2.0.0")");
    const FlasherResources second = release.load();
    EXPECT_NE(first.checksum, second.checksum);
    EXPECT_EQ(first.manifest.version, "1.0.0");
    EXPECT_EQ(second.manifest.version, "2.0.0");
}

TEST(ReleaseValidation, LeavesNoFileOpenWhetherItPassesOrFails) {
    ReleaseFixture release;
    const auto before = ProcessResources::now();
    EXPECT_EQ(release.failure(), "");
    release.manifest.set("binary.sha256", R"("00")");
    EXPECT_EQ(release.failure(), wrongDigest);
    EXPECT_EQ(ProcessResources::now().descriptors, before.descriptors);
}

// fault: the image is beyond every flash
// seen: "File too large"
TEST(ReleaseValidation, RefusesAHugeFileOfTheRightLengthWithoutReadingIt) {
    ReleaseFixture release;
    constexpr std::uint64_t size = 1ULL << 40;
    fs::resize_file(release.image(), size);
    release.manifest.set("binary.size", std::to_string(size));
    EXPECT_EQ(release.failure(), "read " + release.image() + ": File too large");
}

TEST(ImageDigest, CoversAnImageLargerThanTheDevicesFlashToItsLastByte) {
    std::string image((8U << 20) + 1, '\xE9');
    const std::string digest = imageDigest(bytesOf(image));
    image.back() = '\xE8';
    EXPECT_NE(imageDigest(bytesOf(image)), digest);
}

TEST(ImageDigest, IsWrittenWithLeadingZerosInLowerCase) {
    // FIPS 180-4, known answer of the empty message.
    EXPECT_EQ(imageDigest({}), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

}  // namespace
}  // namespace qelmo
