#include "flashing/BootPorts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <system_error>

#include "platform/FileReading.h"
#include "tests/support/DescriptorLimit.h"

namespace qelmo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(BootPorts, ArePathsOfTheTwoKindsFoundInOrder) {
    const auto ports = candidateBootPorts({"null", "cu.wchusbserial110", "cu.usbmodem101", "tty"});
    EXPECT_THAT(ports, ElementsAre("/dev/cu.usbmodem101", "/dev/cu.wchusbserial110"));
    EXPECT_EQ(bootPortStatus(ports.size()), "CHOOSE CARDPUTER PORT");
    EXPECT_EQ(bootPortReport(ports.size()), "Found 2 candidate boot ports.");
}

TEST(BootPorts, AreReadyWhenThereIsOnlyTheOneOfASerialBridge) {
    const auto ports = candidateBootPorts({"cu.SLAB_USBtoUART"});
    EXPECT_THAT(ports, ElementsAre("/dev/cu.SLAB_USBtoUART"));
    EXPECT_EQ(bootPortStatus(ports.size()), "READY");
    EXPECT_EQ(bootPortReport(ports.size()), "Found 1 candidate boot port.");
}

TEST(BootPorts, SortUpperCaseBeforeLowerCase) {
    EXPECT_THAT(
        candidateBootPorts({"cu.usbmodema", "cu.usbmodemB", "cu.wchusbserial1", "cu.SLAB_USBtoUART9"}),
        ElementsAre("/dev/cu.SLAB_USBtoUART9", "/dev/cu.usbmodemB", "/dev/cu.usbmodema",
                    "/dev/cu.wchusbserial1"));
}

TEST(BootPorts, SortDigitsAsCharacters) {
    EXPECT_THAT(candidateBootPorts({"cu.usbmodem9", "cu.usbmodem10"}),
                ElementsAre("/dev/cu.usbmodem10", "/dev/cu.usbmodem9"));
}

TEST(BootPorts, SortBytesAsUnsignedNumbers) {
    EXPECT_THAT(candidateBootPorts({"cu.usbmodem\u00E9", "cu.usbmodemz"}),
                ElementsAre("/dev/cu.usbmodemz", "/dev/cu.usbmodem\u00E9"));
}

TEST(BootPorts, LeaveOutCallInNodesAndOtherDevices) {
    EXPECT_THAT(candidateBootPorts({"tty.usbmodem101"}), IsEmpty());
    EXPECT_THAT(candidateBootPorts({"cu.Bluetooth-Incoming-Port"}), IsEmpty());
}

TEST(BootPorts, LeaveOutANameInOtherLetterCase) {
    EXPECT_THAT(candidateBootPorts({"cu.USBMODEM1", "CU.usbmodem1", "cu.slab_usbtouart"}), IsEmpty());
}

TEST(BootPorts, NeedTheWholePrefixAtTheStartAndNothingMore) {
    EXPECT_THAT(candidateBootPorts({"cu.usbmodem", "cu.usbserial", "cu.SLAB_USBtoUART", "cu.wchusbserial"}),
                ElementsAre("/dev/cu.SLAB_USBtoUART", "/dev/cu.usbmodem", "/dev/cu.usbserial",
                            "/dev/cu.wchusbserial"));
    EXPECT_THAT(candidateBootPorts({"xcu.usbmodem1", ".cu.usbmodem1", ""}), IsEmpty());
    for (const std::string prefix :
         {"cu.usbmodem", "cu.usbserial", "cu.SLAB_USBtoUART", "cu.wchusbserial", "ttyACM", "ttyUSB"}) {
        for (std::size_t length = 0; length < prefix.size(); ++length) {
            const std::string start = prefix.substr(0, length);
            EXPECT_THAT(candidateBootPorts({start, start + "_1"}), IsEmpty()) << start;
        }
    }
}

#ifdef __linux__
TEST(BootPorts, AreKnownByTheKernelsNamesOnLinux) {
    EXPECT_THAT(candidateBootPorts({"ttyUSB0", "ttyACM1", "ttyS0", "ttyAMA0", "ttyacm0"}),
                ElementsAre("/dev/ttyACM1", "/dev/ttyUSB0"));
}
#endif

TEST(BootPorts, AreAwaitedWhenThereIsNone) {
    EXPECT_EQ(bootPortStatus(0), "WAITING FOR G0 BOOT PORT");
    EXPECT_EQ(bootPortReport(0),
              "No boot port found. Put the Cardputer ADV into G0 boot mode, connect USB, then press REFRESH "
              "BUILD.");
    EXPECT_STREQ(noBootPortTitle, "No ESP32-S3 boot port found");
}

TEST(BootPorts, AreCountedInDecimal) {
    EXPECT_EQ(bootPortReport(3), "Found 3 candidate boot ports.");
    EXPECT_EQ(bootPortReport(1000), "Found 1000 candidate boot ports.");
    EXPECT_EQ(bootPortStatus(1000), "CHOOSE CARDPUTER PORT");
}

TEST(BootPorts, AreLookedForInTheDeviceFolder) {
    EXPECT_STREQ(deviceFolder, "/dev");
}

// fault: /dev cannot be listed
TEST(BootPorts, AreNoneWhenTheDeviceFolderCannotBeRead) {
    std::vector<std::string> ports{"never listed"};
    {
        const DescriptorLimit limit(0);
        EXPECT_THROW((void)namesInFolder(deviceFolder), std::system_error);
        ports = listBootPorts();
    }
    // Outside, because a sanitizer opens something of its own while it looks at what a matcher does.
    EXPECT_THAT(ports, IsEmpty());
}

}  // namespace
}  // namespace qelmo
