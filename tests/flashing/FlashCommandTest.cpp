#include "flashing/FlashCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/ReleaseFixture.h"

namespace qelmo {
namespace {

using testing::ElementsAre;

constexpr const char* port = "/dev/cu.usbmodem101";

TEST(FlashCommand, RunsTheSystemsInterpreter) {
    EXPECT_STREQ(pythonPath, "/usr/bin/python3");
}

TEST(FlashCommand, Has22ArgumentsWithTheEraseOptionBehindTheCommand) {
    const ReleaseFixture release;
    EXPECT_THAT(
        flashArguments(release.load(), port),
        ElementsAre(release.tool(), "--chip", "esp32s3", "--port", port, "--baud", "921600", "--before",
                    "default_reset", "--after", "hard_reset", "write_flash", "--erase-all", "--flash_mode",
                    "dio", "--flash_freq", "80m", "--flash_size", "8MB", "--verify", "0x0", release.image()));
}

TEST(FlashCommand, Has21ArgumentsWithoutTheEraseOption) {
    ReleaseFixture release;
    release.manifest.set("flash.eraseAllInternalFlash", "false");
    EXPECT_THAT(
        flashArguments(release.load(), port),
        ElementsAre(release.tool(), "--chip", "esp32s3", "--port", port, "--baud", "921600", "--before",
                    "default_reset", "--after", "hard_reset", "write_flash", "--flash_mode", "dio",
                    "--flash_freq", "80m", "--flash_size", "8MB", "--verify", "0x0", release.image()));
}

TEST(FlashCommand, TakesTheOptionsOfTheManifestUnchanged) {
    ReleaseFixture release;
    release.manifest.set("flash.baud", "-1").set("flash.after", R"("no reset ")");
    release.manifest.set("flash.flashFrequency", R"("")");
    EXPECT_THAT(
        flashArguments(release.load(), port),
        ElementsAre(release.tool(), "--chip", "esp32s3", "--port", port, "--baud", "-1", "--before",
                    "default_reset", "--after", "no reset ", "write_flash", "--erase-all", "--flash_mode",
                    "dio", "--flash_freq", "", "--flash_size", "8MB", "--verify", "0x0", release.image()));
}

TEST(FlashCommand, PassesABaudRateAsPlainDigits) {
    ReleaseFixture release;
    release.manifest.set("flash.baud", "9223372036854775807");
    EXPECT_EQ(flashArguments(release.load(), port).at(6), "9223372036854775807");
}

}  // namespace
}  // namespace qelmo
