#include "flashing/FlashTexts.h"

#include <gtest/gtest.h>

namespace qelmo {
namespace {

TEST(FlashTexts, AskBeforeAnythingIsErased) {
    EXPECT_EQ(FlashTexts::confirmationMessage("1.0.0"), "Erase internal flash and install 1.0.0?");
    EXPECT_EQ(
        FlashTexts::confirmationDetails("/dev/cu.usbmodem101"),
        "Device: /dev/cu.usbmodem101\n\nThis erases the Cardputer ADV internal 8 MB flash, writes the "
        "complete verified image at 0x0, verifies it, and resets the device. The SD card is not mounted "
        "or accessed.");
    EXPECT_STREQ(FlashTexts::confirmButton, "ERASE + FLASH");
    EXPECT_STREQ(FlashTexts::cancelButton, "Cancel");
    EXPECT_STREQ(FlashTexts::cancelledLine, "Flash cancelled. Nothing was written.");
    EXPECT_STREQ(FlashTexts::releaseChanged, "The embedded release changed after validation.");
}

TEST(FlashTexts, SayThatTheToolRuns) {
    EXPECT_STREQ(FlashTexts::runningStatus, "FLASHING \u2014 DO NOT DISCONNECT");
    EXPECT_EQ(FlashTexts::startLine("/dev/cu.usbmodem101"),
              "\nStarting verified full-image flash on /dev/cu.usbmodem101\u2026");
}

TEST(FlashTexts, SayHowItEnded) {
    EXPECT_STREQ(FlashTexts::launchFailedStatus, "FLASHER COULD NOT START");
    EXPECT_STREQ(FlashTexts::failedStatus, "FLASH FAILED");
    EXPECT_STREQ(FlashTexts::failedLine,
                 "\nFLASH FAILED \u2014 keep USB connected, return to G0 boot mode, and retry.");
    EXPECT_STREQ(FlashTexts::completeStatus, "FLASH COMPLETE");
    EXPECT_STREQ(FlashTexts::completeLine,
                 "\nFLASH COMPLETE \u2014 verified and reset. SD card was not accessed.");
    EXPECT_STREQ(FlashTexts::successMessage, "QELMO Varnox is installed");
    EXPECT_EQ(
        FlashTexts::successDetails("1.0.0"),
        "1.0.0 was written and verified. If the Cardputer remains in boot mode, power-cycle it normally "
        "without holding G0.");
    EXPECT_STREQ(FlashTexts::successButton, "Done");
}

}  // namespace
}  // namespace qelmo
