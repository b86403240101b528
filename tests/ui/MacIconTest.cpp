// The icon as it is on macOS: this program links that system's source instead of the one for Linux.

#include <QApplication>
#include <QIcon>
#include <filesystem>

#include "app/WindowCheck.h"
#include "tests/ui/WindowTest.h"

namespace qelmo {

namespace {

using MacIcon = WindowTest;

TEST_F(MacIcon, ComesFromTheBundleNotFromTheToolkit) {
    launch();
    EXPECT_TRUE(QApplication::windowIcon().isNull());
    EXPECT_TRUE(delegate->window->windowIcon().isNull());
    EXPECT_TRUE(passesWindowSelfTest(*delegate));
    std::filesystem::remove(release.resources() + "/AppIcon.icns");
    EXPECT_FALSE(passesWindowSelfTest(*delegate));
}

}  // namespace
}  // namespace qelmo
