#include "app/HeadlessSelfTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/ReleaseFixture.h"

namespace qelmo {
namespace {

TEST(SelfTestReport, HasNineLinesInAFixedOrder) {
    ReleaseFixture release;
    const FlasherResources loaded = release.load();
    EXPECT_THAT(
        selfTestReport(loaded, "4.7.0"),
        testing::ElementsAre("app_bundle=OK\n", "release=1.0.0\n", "flash_button=FLASH VERIFIED VARNOX\n",
                             "binary_size=65537\n", "sha256=" + loaded.checksum + "\n", "flash_address=0x0\n",
                             "esptool=4.7.0\n", "serial_access=NONE\n", "icon=AppIcon.icns\n"));
}

TEST(SelfTestReport, InsertsValuesAsTheyAre) {
    ReleaseFixture release;
    release.manifest.set("version", R"("")").set("flash.confirmationText", R"("")");
    const auto lines = selfTestReport(release.load(), " a=b \t");
    EXPECT_EQ(lines.at(1), "release=\n");
    EXPECT_EQ(lines.at(2), "flash_button=FLASH VERIFIED \n");
    EXPECT_EQ(lines.at(6), "esptool= a=b \t\n");
}

}  // namespace
}  // namespace qelmo
