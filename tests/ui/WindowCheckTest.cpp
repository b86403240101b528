// What the window self-test finds in a window; test_window_self_test.py has the whole program's good report,
// and those without an icon or a valid release.

#include "app/WindowCheck.h"

#include <QApplication>
#include <QIcon>
#include <filesystem>

#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"

namespace qelmo {

namespace {

/// The report of a window with one fault.
std::string reportWith(const std::string& key, const std::string& value = "") {
    std::string report = "window_self_test=FAILED\n";
    for (const auto& [name, right] : {std::pair("window_visible", "true"),
                                      {"window_title", "QELMO Varnox Flasher"},
                                      {"icon_resource", "OK"},
                                      {"refresh_button_title", "REFRESH BUILD"},
                                      {"flash_button_title", "FLASH VERIFIED VARNOX"}})
        report += std::string(name) + "=" + (name == key ? value : right) + "\n";
    return report;
}

class WindowCheck : public WindowTest {
protected:
    WindowCheck() { launch(); }

    std::string report() const { return windowSelfTestReport(*delegate, passesWindowSelfTest(*delegate)); }
};

// fault: the window is not visible
// seen: "window_self_test", "window_visible", "FAILED"
TEST_F(WindowCheck, FailsWhileTheWindowIsHiddenAndWithAnotherTitleOfItOrAButton) {
    delegate->window->hide();
    EXPECT_EQ(report(), reportWith("window_visible", "false"));
    delegate->window->show();
    delegate->window->setWindowTitle(QStringLiteral("Other"));
    EXPECT_EQ(report(), reportWith("window_title", "Other"));
    delegate->window->setWindowTitle(QStringLiteral("QELMO Varnox Flasher"));
    delegate->refreshButton->setTitle(QStringLiteral("REFRESH"));
    EXPECT_EQ(report(), reportWith("refresh_button_title", "REFRESH"));
    delegate->refreshButton->setTitle(QStringLiteral("REFRESH BUILD"));
    delegate->flashButton->setTitle(QStringLiteral("FLASH R&D"));
    EXPECT_EQ(report(), reportWith("flash_button_title", "FLASH R&D"));
}

TEST_F(WindowCheck, FailsWithoutAnIconOfTheApplicationAndWhenTheRefreshButtonDoesSomethingElse) {
    const QIcon icon = QApplication::windowIcon();
    QApplication::setWindowIcon(QIcon());
    EXPECT_EQ(report(), reportWith("none of the values"));
    QApplication::setWindowIcon(icon);
    ActionButton other(*delegate, &AppDelegate::refreshPorts, nullptr);
    other.setTitle(delegate->refreshButton->title());
    delegate->refreshButton = &other;
    EXPECT_EQ(report(), reportWith("none of the values"));
}

// fault: the window is gone before the window self-test looks at it
// seen: "window_self_test=FAILED delegate released"
TEST_F(WindowCheck, SaysThatTheDelegateIsGoneAndWritesNoReport) {
    context.arguments = {"QelmoFlasher", "--window-self-test"};
    replaceDelegate();
    delegate->runWindowSelfTestIfRequested();
    delegate.reset();
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    const int status = QApplication::exec();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "window_self_test=FAILED delegate released\n");
    EXPECT_EQ(status, 1);
    EXPECT_FALSE(std::filesystem::exists(context.windowReportFile));
}

}  // namespace

}  // namespace qelmo
