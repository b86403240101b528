#include "app/WindowCheck.h"

#include <QApplication>
#include <QIcon>
#include <filesystem>

#include "tests/support/InMemoryMainQueue.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"

namespace qelmo {

namespace {

/// The report of a good window, or of one with one fault.
std::string reportWith(const std::string& key = "", const std::string& value = "") {
    std::string report = key.empty() ? "window_self_test=OK\n" : "window_self_test=FAILED\n";
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

TEST_F(WindowCheck, PassesWithAValidReleaseAndAnIcon) {
    EXPECT_EQ(report(), reportWith());
}

// fault: the window is not visible
// seen: "window_self_test", "window_visible", "FAILED"
TEST_F(WindowCheck, FailsWhenTheWindowIsHiddenOrATitleDiffers) {
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

// fault: the bundle has no icon
TEST_F(WindowCheck, FailsWithoutTheIconOfTheApplicationOrOfTheBundle) {
    QApplication::setWindowIcon(QIcon());
    EXPECT_EQ(report(), reportWith("none of the values"));
    std::filesystem::remove(release.resources() + "/AppIcon.icns");
    EXPECT_EQ(report(), reportWith("icon_resource", "MISSING"));
}

TEST_F(WindowCheck, FailsWithoutAValidatedRelease) {
    change("chipFamily", R"("ESP32")");
    pressRefresh();
    EXPECT_EQ(report(), reportWith("none of the values"));
}

TEST_F(WindowCheck, FailsWhenTheWindowIsInsideAnother) {
    QWidget other;
    delegate->window->setParent(&other);
    other.show();
    delegate->window->show();
    EXPECT_EQ(report(), reportWith("none of the values"));
    delegate->window->setParent(nullptr);
}

TEST_F(WindowCheck, FailsWhenTheRefreshButtonDoesSomethingElse) {
    ActionButton other(*delegate, &AppDelegate::refreshPorts, nullptr);
    other.setTitle(delegate->refreshButton->title());
    delegate->refreshButton = &other;
    EXPECT_EQ(report(), reportWith("none of the values"));
}

TEST_F(WindowCheck, RefreshesTheReleaseAndWritesItsReportToTheFileAndToStandardOutput) {
    takeLog();
    testing::internal::CaptureStdout();
    mainQueue->post([this] { checkWindow(delegate); });
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), reportWith());
    EXPECT_EQ(readTestFile(context.windowReportFile), reportWith());
    EXPECT_THAT(takeLog(), testing::StartsWith("Build already current: 1.0.0.\n"));
}

/// Records the delay of the last task.
class DelayNotingQueue : public InMemoryMainQueue {
public:
    void postAfter(std::chrono::milliseconds delay, Task /*task*/) override { noted = delay; }

    std::optional<std::chrono::milliseconds> noted;
};

TEST_F(WindowCheck, ComesAQuarterOfASecondAfterTheStartAndOnlyWithItsArgument) {
    for (const char* const argument : {"--window-self-test=1", "--window-self-test"}) {
        context.arguments = {"QelmoFlasher", argument};
        const auto queue = std::make_shared<DelayNotingQueue>();
        std::make_shared<AppDelegate>(queue, context, checkWindow)->runWindowSelfTestIfRequested();
        EXPECT_EQ(queue->noted.has_value(), argument == std::string("--window-self-test"));
        EXPECT_EQ(queue->noted.value_or(std::chrono::milliseconds(250)), std::chrono::milliseconds(250));
    }
}

// fault: the delegate is gone while the event loop runs, before the window self-test checks the window
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
