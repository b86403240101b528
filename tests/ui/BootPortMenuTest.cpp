#ifdef __linux__
#include <sys/inotify.h>
#include <unistd.h>
#endif

#include <QApplication>
#include <QComboBox>
#include <QTest>
#include <QWheelEvent>

#include "platform/FileDescriptor.h"
#include "tests/support/Fifo.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

using testing::ElementsAre;
using testing::EndsWith;

constexpr const char* noPortLine =
    "No boot port found. Put the Cardputer ADV into G0 boot mode, connect USB, then press REFRESH BUILD.\n";

class BootPortMenu : public WindowTest {
protected:
    std::string status() const { return textOf(delegate->statusLabel); }
    std::string statusColour() const { return hex(delegate->statusLabel->colour()); }
};

TEST_F(BootPortMenu, ShowsSeveralPortsInTheOrderOfTheirNamesAndAsksToChoose) {
    const BootPort wch("cu.wchusbserial110");
    const BootPort modem("cu.usbmodem101");
    launch();
    EXPECT_THAT(delegate->ports, ElementsAre(modem.path(), wch.path()));
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre("/dev/cu.usbmodem101", "/dev/cu.wchusbserial110"));
    EXPECT_EQ(delegate->portPopup->currentIndex(), 0);
    EXPECT_TRUE(delegate->portPopup->isEnabled());
    EXPECT_TRUE(delegate->flashButton->isEnabled());
    EXPECT_EQ(status(), "CHOOSE CARDPUTER PORT");
    EXPECT_EQ(statusColour(), hex(delegate->accent));
    EXPECT_THAT(takeLog(), EndsWith("Found 2 candidate boot ports.\n"));
}

TEST_F(BootPortMenu, IsReadyWithOnePort) {
    const BootPort bridge("cu.SLAB_USBtoUART");
    launch();
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre("/dev/cu.SLAB_USBtoUART"));
    EXPECT_TRUE(delegate->portPopup->isEnabled());
    EXPECT_TRUE(delegate->flashButton->isEnabled());
    EXPECT_EQ(status(), "READY");
    EXPECT_EQ(statusColour(), hex(delegate->accent));
    EXPECT_THAT(takeLog(), EndsWith("Found 1 candidate boot port.\n"));
}

#ifdef __linux__
TEST_F(BootPortMenu, OpensNoPortToListIt) {
    const BootPort port("cu.usbmodem101");
    const FileDescriptor watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    ASSERT_GE(::inotify_add_watch(watch.get(), port.path().c_str(), IN_OPEN), 0);
    launch();
    EXPECT_THAT(delegate->ports, ElementsAre(port.path()));
    inotify_event opened{};
    EXPECT_EQ(::read(watch.get(), &opened, sizeof opened), -1);
}
#endif

TEST_F(BootPortMenu, SortsByBytesAndNotByNumbers) {
    const BootPort nine("cu.usbmodem9");
    const BootPort ten("cu.usbmodem10");
    const BootPort slab("cu.SLAB_USBtoUART");
    launch();
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre(slab.path(), ten.path(), nine.path()));
    EXPECT_THAT(takeLog(), EndsWith("Found 3 candidate boot ports.\n"));
}

// fault: no boot port is there
// seen: "WAITING FOR G0 BOOT PORT", "No ESP32-S3 boot port found"
TEST_F(BootPortMenu, SaysThatThereIsNoPortWhenOnlyOtherDevicesAreThere) {
    const BootPort callIn("tty.usbmodem101");
    const BootPort bluetooth("cu.Bluetooth-Incoming-Port");
    const BootPort otherCase("cu.USBMODEM1");
    launch();
    EXPECT_TRUE(delegate->ports.empty());
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre("No ESP32-S3 boot port found"));
    EXPECT_FALSE(delegate->portPopup->isEnabled());
    EXPECT_TRUE(delegate->resources.has_value());
    EXPECT_FALSE(delegate->flashButton->isEnabled());
    EXPECT_EQ(status(), "WAITING FOR G0 BOOT PORT");
    EXPECT_EQ(statusColour(), hex(delegate->warning));
    EXPECT_THAT(takeLog(), EndsWith(noPortLine));
}

TEST_F(BootPortMenu, KeepsItsDeviceWhenTheWheelTurnsOverIt) {
    const BootPort port("cu.usbmodem101"), other("cu.wchusbserial110");
    launch();
    for (const bool hasFocus : {false, true}) {
        if (hasFocus) delegate->portPopup->setFocus();
        for (const int turn : {-120, 120}) {
            const QPointF place(20, 10);
            QWheelEvent wheel(place, delegate->portPopup->mapToGlobal(place), {}, {0, turn}, Qt::NoButton,
                              Qt::NoModifier, Qt::NoScrollPhase, false);
            QApplication::sendEvent(delegate->portPopup, &wheel);
            EXPECT_EQ(delegate->portPopup->currentIndex(), 0) << turn;
        }
        delegate->portPopup->setCurrentIndex(0);
    }
}

TEST_F(BootPortMenu, OffersPortsButNoFlashWithoutARelease) {
    launch();
    delegate->resources.reset();
    const BootPort port("cu.usbmodem101");
    delegate->refreshPorts();
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre(port.path()));
    EXPECT_TRUE(delegate->portPopup->isEnabled());
    EXPECT_FALSE(delegate->flashButton->isEnabled());
    EXPECT_EQ(status(), "READY");
}

TEST_F(BootPortMenu, ForgetsTheChosenPortWithEveryScan) {
    const BootPort first("cu.usbmodem101");
    const BootPort second("cu.usbmodem102");
    launch();
    delegate->portPopup->setCurrentIndex(1);
    pressRefresh();
    EXPECT_EQ(delegate->portPopup->currentText().toStdString(), first.path());
}

// fault: the device is unplugged before the refresh
TEST_F(BootPortMenu, FollowsAPortThatIsUnpluggedAndPluggedInAgainWithTheRefresh) {
    launch();
    {
        const BootPort port("cu.usbmodem101");
        pressRefresh();
        EXPECT_TRUE(delegate->flashButton->isEnabled());
    }
    pressRefresh();
    EXPECT_TRUE(delegate->ports.empty());
    EXPECT_FALSE(delegate->flashButton->isEnabled());
}

// fault: the ports are listed while a job runs
TEST_F(BootPortMenu, StaysAsItIsWhileAFlashJobRuns) {
    const BootPort port("cu.usbmodem101");
    const Fifo gate;
    setTool("open('" + gate.path() + "').read()\nsys.exit(1)");
    launch();
    startJob();
    takeLog();

    const BootPort later("cu.usbmodem102");
    delegate->refreshPorts();
    EXPECT_THAT(delegate->ports, ElementsAre(port.path()));
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre(port.path()));
    EXPECT_FALSE(delegate->portPopup->isEnabled());
    EXPECT_EQ(status(), "FLASHING — DO NOT DISCONNECT");
    EXPECT_EQ(takeLog(), "");

    gate.open();
    EXPECT_TRUE(waitForEndOfJob());
}

}  // namespace

}  // namespace qelmo
