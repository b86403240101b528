#include <QApplication>
#include <QIcon>
#include <filesystem>

#include "tests/ui/WindowTest.h"

namespace qelmo {

namespace {

using StartUp = WindowTest;

TEST_F(StartUp, BeginsWithItsPaletteAndNothingElse) {
    EXPECT_EQ(hex(delegate->background), "#090909");
    EXPECT_EQ(hex(delegate->panel), "#161616");
    EXPECT_EQ(hex(delegate->foreground), "#f0f0f0");
    EXPECT_EQ(hex(delegate->muted), "#999999");
    EXPECT_EQ(hex(delegate->accent), "#1fd4ed");
    EXPECT_EQ(hex(delegate->warning), "#ffa333");
    EXPECT_EQ(hex(delegate->danger), "#ff4d4a");
    EXPECT_EQ(delegate->window, nullptr);
    EXPECT_FALSE(delegate->resources.has_value());
    EXPECT_EQ(delegate->flashProcess, nullptr);
    EXPECT_TRUE(delegate->ports.empty());
}

/// The colour in the middle of the application's icon, or black if there is no icon.
std::string colourOfIcon() {
    return hex(QApplication::windowIcon().pixmap(128).toImage().pixelColor(64, 64));
}

// fault: the bundle's icon is missing or damaged
TEST_F(StartUp, UsesItsOwnIconSilentlyWhenTheBundlesCannotBeRead) {
    launch();
    EXPECT_EQ(colourOfIcon(), "#ff0000");
    const std::string icon = release.resources() + "/AppIcon.icns";
    std::filesystem::resize_file(icon, 40);
    for (const bool isDamaged : {true, false}) {
        if (!isDamaged) std::filesystem::remove(icon);
        replaceDelegate();
        launch();
        EXPECT_FALSE(QApplication::windowIcon().availableSizes().isEmpty());
        EXPECT_NE(colourOfIcon(), "#ff0000");
        EXPECT_THAT(takeLog(), testing::StartsWith("Embedded full image verified.\n"));
    }
}

}  // namespace
}  // namespace qelmo
