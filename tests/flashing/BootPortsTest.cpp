#include "flashing/BootPorts.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

std::vector<std::string> listedOf(const std::vector<std::string>& names) {
    const TemporaryFolder folder;
    // Opening a FIFO would block.
    for (const std::string& name : names) EXPECT_EQ(::mkfifo((folder / name).c_str(), 0600), 0) << name;
    std::vector<std::string> listed;
    for (const std::string& path : listBootPorts(folder.path())) {
        EXPECT_TRUE(path.starts_with(folder / "")) << path;
        listed.push_back(path.substr(folder.path().size() + 1));
    }
    return listed;
}

TEST(BootPorts, AreListedInByteOrderWithoutBeingOpened) {
    EXPECT_THAT(
        listedOf({"cu.wchusbserial110", "null", "cu.usbmodem9", "cu.usbmodem10", "cu.usbmodema",
                  "cu.usbmodemB", "cu.usbmodem\u00E9", "tty.usbmodem101", "cu.SLAB_USBtoUART9",
                  "cu.usbserial-1"}),
        testing::ElementsAre("cu.SLAB_USBtoUART9", "cu.usbmodem10", "cu.usbmodem9", "cu.usbmodemB",
                             "cu.usbmodema", "cu.usbmodem\u00E9", "cu.usbserial-1", "cu.wchusbserial110"));
}

// fault: /dev cannot be listed
TEST(BootPorts, AreNoneWhenTheDeviceFolderCannotBeRead) {
    EXPECT_THAT(listBootPorts("/nonexistent"), testing::IsEmpty());
}

TEST(BootPorts, AreRecognisedByTheWholePrefixOfTheName) {
    std::vector<std::string> prefixes{"cu.usbmodem", "cu.usbserial", "cu.SLAB_USBtoUART", "cu.wchusbserial"};
#ifdef __linux__
    prefixes.insert(prefixes.end(), {"ttyACM", "ttyUSB"});
#endif
    for (const std::string& prefix : prefixes) {
        EXPECT_TRUE(isBootPortName(prefix));
        EXPECT_TRUE(isBootPortName(prefix + "0"));
        EXPECT_FALSE(isBootPortName("x" + prefix));
        for (std::size_t length = 0; length < prefix.size(); ++length)
            EXPECT_FALSE(isBootPortName(prefix.substr(0, length) + "_1")) << prefix << " " << length;
    }
    for (const char* other :
         {"cu.Bluetooth-Incoming-Port", "cu.USBMODEM1", "CU.usbmodem1", "ttyS0", "ttyacm0"})
        EXPECT_FALSE(isBootPortName(other)) << other;
}

TEST(BootPorts, AreCountedInTheLog) {
    EXPECT_EQ(bootPortReport(0),
              "No boot port found. Put the Cardputer ADV into G0 boot mode, connect USB, then press REFRESH "
              "BUILD.");
    EXPECT_EQ(bootPortReport(1), "Found 1 candidate boot port.");
    EXPECT_EQ(bootPortReport(2), "Found 2 candidate boot ports.");
}

}  // namespace
}  // namespace qelmo
