#include "release/FlashManifest.h"

#include <gtest/gtest.h>

#include <concepts>
#include <type_traits>

#include "tests/support/ManifestText.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

// Records are copied freely and never changed.
static_assert(std::is_copy_constructible_v<FlashManifest> && !std::is_copy_assignable_v<FlashManifest>);
static_assert(std::same_as<decltype(FlashManifest::Binary::size), const std::int64_t>);

// A key has no number: code that looks one up by number does not compile.
template <typename Number>
concept CanLookUpAKeyBy = requires(Number number) {
    codingKey<FlashManifest>(number);
};
static_assert(CanLookUpAKeyBy<std::string_view> && !CanLookUpAKeyBy<int>);
static_assert(!std::convertible_to<FlashManifest::CodingKeys, int>);

TEST(FlashManifest, DecodesEveryField) {
    ManifestText text;
    text.set("binary.offset", "4096").set("binary.sha256", R"("00FF")");
    const std::string json = text.text();
    const FlashManifest manifest = FlashManifest::decode(bytesOf(json));
    EXPECT_EQ(manifest.schemaVersion, 1);
    EXPECT_EQ(manifest.name, "Varnox");
    EXPECT_EQ(manifest.version, "1.0.0");
    EXPECT_EQ(manifest.chipFamily, "ESP32-S3");
    EXPECT_EQ(manifest.hardware, "Cardputer ADV");
    EXPECT_EQ(manifest.binary.path, "release-complete.bin");
    EXPECT_EQ(manifest.binary.offset, 4096);
    EXPECT_EQ(manifest.binary.size, 65537);
    EXPECT_EQ(manifest.binary.sha256, "00FF");
    EXPECT_EQ(manifest.flash.baud, 921600);
    EXPECT_EQ(manifest.flash.flashSize, "8MB");
    EXPECT_EQ(manifest.flash.flashMode, "dio");
    EXPECT_EQ(manifest.flash.flashFrequency, "80m");
    EXPECT_TRUE(manifest.flash.eraseAllInternalFlash);
    EXPECT_EQ(manifest.flash.after, "hard_reset");
    EXPECT_EQ(manifest.flash.confirmationText, "FLASH VARNOX");
}

TEST(CodingKeys, AreFoundByTheirExactText) {
    EXPECT_EQ(codingKey<FlashManifest>("flash"), FlashManifest::CodingKeys::flash);
    EXPECT_EQ(codingKey<FlashManifest::Binary>("path"), FlashManifest::Binary::CodingKeys::path);
    EXPECT_EQ(codingKey<FlashManifest::Flash>("after"), FlashManifest::Flash::CodingKeys::after);
    for (const char* unknown : {"", "0", "Name", "name ", "path"})
        EXPECT_EQ(codingKey<FlashManifest>(unknown), std::nullopt);
}

}  // namespace
}  // namespace qelmo
