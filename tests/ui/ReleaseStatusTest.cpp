#include <QComboBox>
#include <QTest>
#include <filesystem>

#include "tests/support/Fifo.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

using testing::ElementsAre;
using testing::StartsWith;

std::string anotherImage() {
    std::string image = ReleaseFixture::smallestImage();
    image[100] = 'x';
    return image;
}

class ReleaseStatus : public WindowTest {
protected:
    ReleaseStatus() { release.manifest.set("version", R"("1.2.0")"); }

    void installVersion(const std::string& version) {
        release.manifest.set("version", '"' + version + '"');
        writeRelease();
    }

    /// What a successful validation writes, over a window without ports.
    std::string reportBelow(const std::string& verdict) const {
        return verdict + "\nSHA-256  " + ReleaseFixture::digestOf(readTestFile(release.image())) +
               "\nAddress   0x0\nSD card   not accessed by this application\n"
               "No boot port found. Put the Cardputer ADV into G0 boot mode, connect USB, then press REFRESH "
               "BUILD.\n";
    }

    void expectFailureShown(const std::string& reason) {
        EXPECT_FALSE(delegate->resources.has_value());
        EXPECT_EQ(textOf(delegate->releaseLabel), "RELEASE VALIDATION FAILED\n" + reason);
        EXPECT_EQ(hex(delegate->releaseLabel->colour()), hex(delegate->foreground));
        EXPECT_EQ(textOf(delegate->statusLabel), "NOT READY");
        EXPECT_EQ(hex(delegate->statusLabel->colour()), hex(delegate->danger));
        EXPECT_FALSE(delegate->flashButton->isEnabled());
        EXPECT_EQ(takeLog(), "STOP: " + reason + "\n");
    }
};

TEST_F(ReleaseStatus, ShowsAValidReleaseAtTheStart) {
    std::string image(8388608, '\0');
    image[0] = image[0x10000] = '\xE9';
    release.setImage(image);
    release.manifest.set("name", R"("Example")");
    writeRelease();
    launch();
    EXPECT_EQ(textOf(delegate->releaseLabel), "Example  //  1.2.0\n8388608 bytes  •  SHA-256 " +
                                                  ReleaseFixture::digestOf(image).substr(0, 16) +
                                                  "…  •  ESP32-S3 / 8 MB / DIO / 80 MHz");
    EXPECT_EQ(delegate->flashButton->title().toStdString(), "FLASH VERIFIED VARNOX");
    EXPECT_EQ(takeLog(), reportBelow("Embedded full image verified."));
}

TEST_F(ReleaseStatus, CallsAnUnchangedBuildCurrent) {
    writeRelease();
    launch();
    takeLog();
    pressRefresh();
    EXPECT_EQ(takeLog(), reportBelow("Build already current: 1.2.0."));
}

TEST_F(ReleaseStatus, ShowsTheNamesOfABuildThatIsCurrentAnew) {
    writeRelease();
    launch();
    release.manifest.set("name", R"("Renamed")");
    release.manifest.set("flash.confirmationText", R"("FLASH RENAMED")");
    writeRelease();
    pressRefresh();
    EXPECT_THAT(textOf(delegate->releaseLabel), StartsWith("Renamed  //  1.2.0\n"));
    EXPECT_EQ(delegate->flashButton->title().toStdString(), "FLASH VERIFIED RENAMED");
}

TEST_F(ReleaseStatus, TellsTheVersionsOfANewBuild) {
    writeRelease();
    launch();
    takeLog();
    release.setImage(anotherImage());
    installVersion("1.3.0");
    pressRefresh();
    EXPECT_EQ(takeLog(), reportBelow("NEW BUILD LOADED: 1.2.0 → 1.3.0."));
    EXPECT_THAT(textOf(delegate->releaseLabel), StartsWith("Varnox  //  1.3.0\n"));
}

TEST_F(ReleaseStatus, CallsOtherBytesOfTheSameVersionANewBuild) {
    writeRelease();
    launch();
    takeLog();
    release.setImage(anotherImage());
    writeRelease();
    pressRefresh();
    EXPECT_EQ(takeLog(), reportBelow("NEW BUILD LOADED: 1.2.0 → 1.2.0."));
}

TEST_F(ReleaseStatus, CallsTheSameBytesWithAnotherVersionANewBuild) {
    writeRelease();
    launch();
    takeLog();
    installVersion("1.2.1");
    pressRefresh();
    EXPECT_EQ(takeLog(), reportBelow("NEW BUILD LOADED: 1.2.0 → 1.2.1."));
}

TEST_F(ReleaseStatus, ReportsAFirstSuccessAsVerifiedEvenWhenTheUserAskedForIt) {
    std::filesystem::remove(release.manifestFile());
    launch();
    expectFailureShown("The embedded flash manifest is missing.");
    EXPECT_EQ(delegate->flashButton->title().toStdString(), "VALIDATING RELEASE");
    installVersion("1.2.0");
    pressRefresh();
    EXPECT_EQ(takeLog(), reportBelow("Embedded full image verified."));
    EXPECT_EQ(textOf(delegate->statusLabel), "WAITING FOR G0 BOOT PORT");
}

// fault: a refresh finds a fault
// seen: "NOT READY"
TEST_F(ReleaseStatus, KeepsTheTitleAndThePortsWhenARefreshFails) {
    const BootPort port("cu.usbmodem101");
    release.manifest.set("flash.confirmationText", R"("FLASH VARNOX & MORE")");
    writeRelease();
    launch();
    EXPECT_TRUE(delegate->flashButton->isEnabled());
    takeLog();
    std::filesystem::remove(release.tool());
    const BootPort later("cu.usbmodem102");
    pressRefresh();
    expectFailureShown("The local Espressif tool is missing. Run BUILD-FULL-MAC.command once.");
    EXPECT_EQ(delegate->flashButton->title().toStdString(), "FLASH VERIFIED VARNOX & MORE");
    EXPECT_THAT(delegate->ports, ElementsAre(port.path()));
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre(port.path()));
    EXPECT_TRUE(delegate->portPopup->isEnabled());
}

TEST_F(ReleaseStatus, DoesNotRefreshWhileAFlashJobRuns) {
    const BootPort port("cu.usbmodem101");
    const Fifo gate;
    setTool("open('" + gate.path() + "').read()");
    writeRelease();
    launch();
    startJob();
    takeLog();
    const std::string panel = textOf(delegate->releaseLabel);

    const BootPort later("cu.usbmodem102");
    installVersion("2.0.0");
    delegate->refreshBuildAndPorts();
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(textOf(delegate->releaseLabel), panel);
    EXPECT_EQ(delegate->resources->manifest.version, "1.2.0");
    EXPECT_THAT(delegate->ports, ElementsAre(port.path()));

    const AlertAnswer done(click("Done"));
    gate.open();
    EXPECT_TRUE(waitUntil([&done] { return done.hasEnded(); }));
}

struct Damage {
    std::string name;
    std::function<void(ReleaseFixture&)> make;
    std::string reason;
};

Damage wrongValue(const std::string& name, const std::string& path, const std::string& json,
                  const std::string& reason) {
    return {name, [path, json](ReleaseFixture& release) { release.manifest.set(path, json); }, reason};
}

class DamagedRelease : public ReleaseStatus, public testing::WithParamInterface<Damage> {};

// fault: the release is damaged at the start
// seen: "NOT READY", "STOP:"
TEST_P(DamagedRelease, IsRefusedInThePanelTheStatusAndTheLog) {
    GetParam().make(release);
    writeRelease();
    launch();
    expectFailureShown(GetParam().reason);
}

INSTANTIATE_TEST_SUITE_P(
    ReleaseStatus, DamagedRelease,
    testing::Values(
        wrongValue("Schema", "schemaVersion", "2", "The embedded flash manifest version is unsupported."),
        wrongValue("Chip", "chipFamily", R"("ESP32")", "This release is not locked to ESP32-S3."),
        wrongValue("Offset", "binary.offset", "4096", "The complete firmware must flash at address 0x0."),
        wrongValue("Geometry", "flash.flashSize", R"("4MB")",
                   "The embedded flash geometry is not Cardputer ADV safe."),
        wrongValue("Length", "binary.size", "65538",
                   "The embedded firmware size does not match its manifest."),
        wrongValue("Digest", "binary.sha256", R"("00")", "The embedded firmware checksum is not trusted."),
        wrongValue("WrongType", "name", "7", "name: expected a string, found an integer"),
        Damage{"NoMagic", [](ReleaseFixture& one) { one.setImage(std::string(65537, '\0')); },
               "The embedded file is not a complete QELMO firmware image."},
        Damage{"NoTool", [](ReleaseFixture& one) { std::filesystem::remove(one.tool()); },
               "The local Espressif tool is missing. Run BUILD-FULL-MAC.command once."}),
    [](const auto& test) { return test.param.name; });

// fault: the image is missing at the start
// seen: "RELEASE VALIDATION FAILED", "No such file or directory"
TEST_F(ReleaseStatus, NamesTheImageThatIsMissing) {
    std::filesystem::remove(release.image());
    launch();
    EXPECT_THAT(textOf(delegate->releaseLabel),
                testing::AllOf(StartsWith("RELEASE VALIDATION FAILED\n"),
                               testing::EndsWith("release-complete.bin: No such file or directory")));
}

TEST_F(ReleaseStatus, ShowsMarkupInTheManifestAsItStands) {
    release.manifest.set("name", R"("<b>Varnox</b> & co")");
    writeRelease();
    launch();
    EXPECT_THAT(textOf(delegate->releaseLabel), StartsWith("<b>Varnox</b> & co  //  1.2.0\n"));
    EXPECT_EQ(delegate->releaseLabel->textFormat(), Qt::PlainText);
}

}  // namespace

}  // namespace qelmo
