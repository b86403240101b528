#include <QApplication>
#include <QIcon>
#include <filesystem>

#include "tests/ui/WindowTest.h"

namespace qelmo {

namespace {

using testing::StartsWith;

/// The colour in the middle of the application's icon.
std::string colourOfIcon() {
    const QImage picture = QApplication::windowIcon().pixmap(128).toImage();
    return picture.isNull() ? "no picture" : hex(picture.pixelColor(picture.rect().center()));
}

class StartUp : public WindowTest {};

TEST_F(StartUp, BeginsWithItsPaletteAndNothingElse) {
    EXPECT_EQ(hex(delegate->background), "#090909");
    EXPECT_EQ(hex(delegate->panel), "#161616");
    EXPECT_EQ(hex(delegate->foreground), "#f0f0f0");
    EXPECT_EQ(hex(delegate->muted), "#999999");
    EXPECT_EQ(hex(delegate->accent), "#1fd4ed");
    EXPECT_EQ(hex(delegate->warning), "#ffa333");
    EXPECT_EQ(hex(delegate->danger), "#ff4d4a");
    EXPECT_EQ(delegate->window, nullptr);
    EXPECT_EQ(delegate->releaseLabel, nullptr);
    EXPECT_EQ(delegate->statusLabel, nullptr);
    EXPECT_EQ(delegate->portPopup, nullptr);
    EXPECT_EQ(delegate->refreshButton, nullptr);
    EXPECT_EQ(delegate->flashButton, nullptr);
    EXPECT_EQ(delegate->progress, nullptr);
    EXPECT_EQ(delegate->logTextView, nullptr);
    EXPECT_FALSE(delegate->resources.has_value());
    EXPECT_EQ(delegate->flashProcess, nullptr);
    EXPECT_TRUE(delegate->ports.empty());
}

// fault: the bundle has no icon, or a damaged one
TEST_F(StartUp, UsesItsOwnIconWithoutAWordWhenTheBundlesCannotBeRead) {
    launch();
    EXPECT_EQ(colourOfIcon(), "#ff0000");
    const std::string icon = release.resources() + "/AppIcon.icns";
    for (const bool isDamaged : {true, false}) {
        std::filesystem::remove(icon);
        if (isDamaged) writeTestFile(icon, redIcon().substr(0, 40));
        replaceDelegate();
        launch();
        EXPECT_FALSE(QApplication::windowIcon().availableSizes().isEmpty());
        EXPECT_NE(colourOfIcon(), "#ff0000");
        EXPECT_THAT(takeLog(), StartsWith("Embedded full image verified.\n"));
    }
}

}  // namespace

}  // namespace qelmo
