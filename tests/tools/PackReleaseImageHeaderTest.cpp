#include "tools/pack-release/ImageHeader.h"

#include <gmock/gmock.h>

#include <array>

#include "release/FlasherFailure.h"

namespace qelmo {
namespace {

FlashManifest manifestFor(const std::string& frequency) {
    return {
        1, "", "", "ESP32-S3", "", {"", 0, 0, ""}, {921600, "8MB", "dio", frequency, true, "hard_reset", ""}};
}

std::string errorFor(unsigned char mode, unsigned char sizeAndFrequency, const std::string& frequency) {
    const std::array header{std::byte{0xE9}, std::byte{3}, std::byte{mode}, std::byte{sizeAndFrequency}};
    try {
        requireUnchangedHeader(header, manifestFor(frequency));
    } catch (const FlasherFailure& error) {
        return error.what();
    }
    return "no error";
}

// The codes that esptool 4.x writes for --flash_mode dio --flash_size 8MB and each clock of the ESP32-S3.
TEST(PackReleaseImageHeader, PassesWhenItSaysWhatTheFlashingToolWouldWrite) {
    EXPECT_EQ(errorFor(0x02, 0x3F, "80m"), "no error");
    EXPECT_EQ(errorFor(0x02, 0x30, "40m"), "no error");
    EXPECT_EQ(errorFor(0x02, 0x31, "26m"), "no error");
    EXPECT_EQ(errorFor(0x02, 0x32, "20m"), "no error");
}

// fault: the header of the image and the release's settings differ
// seen: "The image's header bytes 2 and 3 are …, but the flashing tool would rewrite them to …"
TEST(PackReleaseImageHeader, IsRefusedWithBothPairsOfBytesWhenTheToolWouldRewriteIt) {
    EXPECT_EQ(errorFor(0x00, 0x3F, "80m"),
              "The image's header bytes 2 and 3 are 00 3F, but the flashing tool would rewrite them to 02 3F "
              "(dio, 8MB, 80m), and the device would not hold the bytes that were verified; build the image "
              "for these settings or give --accept-header-rewrite.");
    EXPECT_THAT(errorFor(0x02, 0x2F, "80m"), testing::HasSubstr("are 02 2F, "));
    EXPECT_THAT(errorFor(0x02, 0x3F, "40m"), testing::HasSubstr("to 02 30 (dio, 8MB, 40m)"));
}

}  // namespace
}  // namespace qelmo
