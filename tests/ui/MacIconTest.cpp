// The icon as it is on macOS: this program is linked with that system's source instead of the one for Linux.

#include <QApplication>
#include <QIcon>
#include <filesystem>

#include "app/WindowSelfTest.h"
#include "tests/ui/WindowTest.h"
#include "ui/ApplicationIcon.h"

namespace qelmo {

namespace {

class MacIcon : public WindowTest {
protected:
    void removeIcon() const { std::filesystem::remove(release.resources() + "/AppIcon.icns"); }
};

TEST_F(MacIcon, IsTheBundlesAndNoneOfTheToolkits) {
    launch();
    EXPECT_TRUE(QApplication::windowIcon().isNull());
    EXPECT_TRUE(delegate->window->windowIcon().isNull());
    EXPECT_TRUE(passesWindowSelfTest(*delegate));
}

TEST_F(MacIcon, HasNoFallbackAmongTheToolkitsPictures) {
    removeIcon();
    launch();
    EXPECT_TRUE(QApplication::windowIcon().isNull());
    EXPECT_THAT(takeLog(), testing::StartsWith("Embedded full image verified.\n"));
}

TEST_F(MacIcon, FailsTheWindowSelfTestWhenTheBundleHasNone) {
    launch();
    EXPECT_TRUE(hasApplicationIcon());
    removeIcon();
    EXPECT_FALSE(hasApplicationIcon());
    EXPECT_FALSE(passesWindowSelfTest(*delegate));
}

}  // namespace

}  // namespace qelmo
