#ifdef __linux__
#include <sys/inotify.h>
#include <unistd.h>
#endif

#include <QApplication>
#include <QComboBox>
#include <QWheelEvent>
#include <filesystem>

#include "platform/FileDescriptor.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

using testing::ElementsAre;
using testing::EndsWith;

const std::string noPortLine =
    "No boot port found. Put the Cardputer ADV into G0 boot mode, connect USB, then press REFRESH BUILD.\n";

class ReleaseStatus : public WindowTest {
protected:
    /// What a successful validation writes.
    std::string report(const std::string& verdict, const std::string& ports = noPortLine) const {
        return verdict + "\nSHA-256  " + ReleaseFixture::digestOf(readTestFile(release.image())) +
               "\nAddress   0x0\nSD card   not accessed by this application\n" + ports;
    }

    void expectRefusal(const std::string& reason) {
        EXPECT_FALSE(delegate->resources.has_value());
        expectShown("NOT READY");
        EXPECT_EQ(textOf(delegate->releaseLabel), "RELEASE VALIDATION FAILED\n" + reason);
        EXPECT_EQ(takeLog(), "STOP: " + reason + "\n");
    }
};

TEST_F(ReleaseStatus, ShowsAValidReleaseAtTheStart) {
    std::string image(8388608, '\0');
    image[0] = image[0x10000] = '\xE9';
    release.setImage(image);
    change("name", R"("<b>Example</b> & co")");
    launch();
    EXPECT_EQ(textOf(delegate->releaseLabel), "<b>Example</b> & co  //  1.0.0\n8388608 bytes  •  SHA-256 " +
                                                  ReleaseFixture::digestOf(image).substr(0, 16) +
                                                  "…  •  ESP32-S3 / 8 MB / DIO / 80 MHz");
    EXPECT_EQ(delegate->releaseLabel->textFormat(), Qt::PlainText);
    expectShown("WAITING FOR G0 BOOT PORT");
    EXPECT_EQ(takeLog(), report("Embedded full image verified."));
}

TEST_F(ReleaseStatus, TellsWithEveryRefreshWhetherTheBuildIsANewOne) {
    launch();
    takeLog();
    const auto expectVerdict = [this](const std::string& verdict) {
        writeRelease();
        pressRefresh();
        EXPECT_EQ(takeLog(), report(verdict));
        EXPECT_THAT(textOf(delegate->releaseLabel),
                    testing::HasSubstr("  //  " + delegate->resources->manifest.version + "\n"));
        expectShown("WAITING FOR G0 BOOT PORT");
    };
    expectVerdict("Build already current: 1.0.0.");
    release.manifest.set("name", R"("Renamed")");
    release.manifest.set("flash.confirmationText", R"("FLASH RENAMED")");
    expectVerdict("Build already current: 1.0.0.");
    EXPECT_EQ(delegate->flashButton->title().toStdString(), "FLASH VERIFIED RENAMED");
    release.manifest.set("version", R"("1.0.1")");
    expectVerdict("NEW BUILD LOADED: 1.0.0 → 1.0.1.");
    std::string image = ReleaseFixture::smallestImage();
    image[100] = 'x';
    release.setImage(image);
    expectVerdict("NEW BUILD LOADED: 1.0.1 → 1.0.1.");
}

// fault: the release is damaged at the start, and mended later
// seen: "NOT READY", "RELEASE VALIDATION FAILED", "The embedded flash manifest is missing."
TEST_F(ReleaseStatus, IsRefusedInThePanelTheStatusAndTheLogUntilItIsMended) {
    std::filesystem::remove(release.manifestFile());
    launch();
    expectRefusal("The embedded flash manifest is missing.");
    EXPECT_EQ(delegate->flashButton->title().toStdString(), "VALIDATING RELEASE");
    writeRelease();
    pressRefresh();
    EXPECT_EQ(takeLog(), report("Embedded full image verified."));
    expectShown("WAITING FOR G0 BOOT PORT");
}

// fault: a refresh finds a fault
// seen: "NOT READY", "STOP:"
TEST_F(ReleaseStatus, KeepsTheTitleAndThePortsWhenARefreshFails) {
    const std::string port = plugIn("cu.usbmodem101");
    change("flash.confirmationText", R"("FLASH VARNOX & MORE")");
    launch();
    takeLog();
    std::filesystem::remove(release.tool());
    plugIn("cu.usbmodem102");
    pressRefresh();
    expectRefusal("The local Espressif tool is missing. Run BUILD-FULL-MAC.command once.");
    EXPECT_EQ(delegate->flashButton->title().toStdString(), "FLASH VERIFIED VARNOX & MORE");
    EXPECT_THAT(delegate->ports, ElementsAre(port));
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre(port));
}

class BootPortMenu : public ReleaseStatus {};

// fault: the device is unplugged, or plugged in, before the refresh
// seen: "WAITING FOR G0 BOOT PORT", "No ESP32-S3 boot port found"
TEST_F(BootPortMenu, ShowsThePortsOfEachRefreshInTheOrderOfTheirNames) {
    launch();
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre("No ESP32-S3 boot port found"));
    EXPECT_TRUE(delegate->ports.empty());
    expectShown("WAITING FOR G0 BOOT PORT");
    const std::string nine = plugIn("cu.usbmodem9");
    const std::string ten = plugIn("cu.usbmodem10");
    pressRefresh();
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre(ten, nine));
    EXPECT_EQ(delegate->ports, itemsOf(delegate->portPopup));
    expectShown("CHOOSE CARDPUTER PORT");
    EXPECT_THAT(takeLog(), EndsWith("Found 2 candidate boot ports.\n"));
    delegate->portPopup->setCurrentIndex(1);
    unplug("cu.usbmodem9");
    pressRefresh();
    EXPECT_EQ(delegate->portPopup->currentIndex(), 0);
    expectShown("READY");
}

#ifdef __linux__
TEST_F(BootPortMenu, OpensNoPortToListIt) {
    const std::string port = plugIn("cu.usbmodem101");
    const FileDescriptor watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    ASSERT_GE(::inotify_add_watch(watch.get(), port.c_str(), IN_OPEN), 0);
    launch();
    EXPECT_THAT(delegate->ports, ElementsAre(port));
    inotify_event opened{};
    EXPECT_EQ(::read(watch.get(), &opened, sizeof opened), -1);
}
#endif

TEST_F(BootPortMenu, KeepsItsDeviceWhenTheWheelTurnsOverIt) {
    plugIn("cu.usbmodem101");
    plugIn("cu.wchusbserial110");
    launch();
    delegate->portPopup->setFocus();
    const QPointF place(20, 10);
    QWheelEvent wheel(place, delegate->portPopup->mapToGlobal(place), {}, {0, -120}, Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(delegate->portPopup, &wheel);
    EXPECT_EQ(delegate->portPopup->currentIndex(), 0);
}

}  // namespace

}  // namespace qelmo
