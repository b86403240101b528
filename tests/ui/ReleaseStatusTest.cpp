#include <QApplication>
#include <QComboBox>
#include <QWheelEvent>
#include <filesystem>

#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

class ReleaseStatus : public ReadyWindowTest {};

// fault: a refresh finds a fault in the release, and the next refresh finds it repaired
// seen: "NOT READY", "RELEASE VALIDATION FAILED", "The embedded flash manifest is missing."
TEST_F(ReleaseStatus, ShowsAFaultInPanelStatusAndLogUntilItIsRepaired) {
    EXPECT_THAT(takeLog(), AllOf(StartsWith("Embedded full image verified.\nSHA-256  "),
                                 EndsWith("\nFound 1 candidate boot port.\n")));
    std::filesystem::remove(release.manifestFile());
    plugIn("cu.usbmodem102");
    pressRefresh();
    EXPECT_FALSE(delegate->resources.has_value());
    expectShown("NOT READY");
    EXPECT_EQ(textOf(delegate->releaseLabel),
              "RELEASE VALIDATION FAILED\nThe embedded flash manifest is missing.");
    EXPECT_EQ(takeLog(), "STOP: The embedded flash manifest is missing.\n");
    EXPECT_EQ(delegate->flashButton->title().toStdString(), "FLASH VERIFIED VARNOX");
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre(port));
    change("version", R"("1.0.1")");
    pressRefresh();
    EXPECT_THAT(takeLog(), AllOf(StartsWith("Embedded full image verified.\n"),
                                 EndsWith("\nFound 2 candidate boot ports.\n")));
    expectShown("CHOOSE CARDPUTER PORT");
}

using BootPortMenu = ReadyWindowTest;

TEST_F(BootPortMenu, IgnoresTheMouseWheel) {
    plugIn("cu.wchusbserial110");
    pressRefresh();
    delegate->portPopup->setFocus();
    const QPointF place(20, 10);
    QWheelEvent wheel(place, delegate->portPopup->mapToGlobal(place), {}, {0, -120}, Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(delegate->portPopup, &wheel);
    EXPECT_EQ(delegate->portPopup->currentIndex(), 0);
}

}  // namespace
}  // namespace qelmo
