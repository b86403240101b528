#include "app/WindowSelfTest.h"

#include <QApplication>
#include <QIcon>
#include <filesystem>

#include "tests/support/InMemoryMainQueue.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/ApplicationIcon.h"

namespace qelmo {

namespace {

class WindowSelfTest : public WindowTest {
protected:
    WindowSelfTest() { launch(); }

    bool passes() const { return passesWindowSelfTest(*delegate); }
    std::string report() const { return windowSelfTestReport(*delegate, passes()); }
};

TEST_F(WindowSelfTest, PassesWithAValidReleaseAndAnIcon) {
    EXPECT_EQ(
        report(),
        "window_self_test=OK\nwindow_visible=true\nwindow_title=QELMO Varnox Flasher\nicon_resource=OK\n"
        "refresh_button_title=REFRESH BUILD\nflash_button_title=FLASH VERIFIED VARNOX\n");
}

// fault: the window is not visible
// seen: "window_self_test=FAILED", "window_visible=false"
TEST_F(WindowSelfTest, FailsWhileTheWindowIsHidden) {
    delegate->window->hide();
    EXPECT_EQ(
        report(),
        "window_self_test=FAILED\nwindow_visible=false\nwindow_title=QELMO Varnox Flasher\n"
        "icon_resource=OK\nrefresh_button_title=REFRESH BUILD\nflash_button_title=FLASH VERIFIED VARNOX\n");
}

TEST_F(WindowSelfTest, FailsWithAnotherWindowTitleAndReportsIt) {
    delegate->window->setWindowTitle(QStringLiteral("Other"));
    EXPECT_THAT(report(),
                testing::StartsWith("window_self_test=FAILED\nwindow_visible=true\nwindow_title=Other\n"));
}

TEST_F(WindowSelfTest, FailsWithoutTheIconResource) {
    std::filesystem::remove(release.resources() + "/AppIcon.icns");
    EXPECT_THAT(report(), testing::HasSubstr("\nicon_resource=MISSING\n"));
    EXPECT_FALSE(passes());
}

TEST_F(WindowSelfTest, FailsWhenTheApplicationHasNoIcon) {
    QApplication::setWindowIcon(QIcon());
    EXPECT_FALSE(passes());
}

TEST_F(WindowSelfTest, FailsWithoutAValidatedRelease) {
    release.manifest.set("chipFamily", R"("ESP32")");
    writeRelease();
    pressRefresh();
    EXPECT_EQ(
        report(),
        "window_self_test=FAILED\nwindow_visible=true\nwindow_title=QELMO Varnox Flasher\nicon_resource=OK\n"
        "refresh_button_title=REFRESH BUILD\nflash_button_title=FLASH VERIFIED VARNOX\n");
}

TEST_F(WindowSelfTest, FailsWithAnotherTitleOfTheRefreshButton) {
    delegate->refreshButton->setTitle(QStringLiteral("REFRESH"));
    EXPECT_THAT(report(), testing::HasSubstr("\nrefresh_button_title=REFRESH\n"));
    EXPECT_FALSE(passes());
}

TEST_F(WindowSelfTest, FailsWithAnotherTitleOfTheFlashButton) {
    delegate->flashButton->setTitle(QStringLiteral("FLASH"));
    EXPECT_THAT(report(), testing::EndsWith("\nflash_button_title=FLASH\n"));
    EXPECT_FALSE(passes());
}

TEST_F(WindowSelfTest, FailsWhenTheWindowIsNoneOfTheApplications) {
    QWidget other;
    delegate->window->setParent(&other);
    other.show();
    delegate->window->show();
    EXPECT_THAT(report(), testing::StartsWith("window_self_test=FAILED\nwindow_visible=true\n"));
    delegate->window->setParent(nullptr);
}

TEST_F(WindowSelfTest, FailsWhenTheRefreshButtonDoesSomethingElse) {
    ActionButton other(delegate->refreshButton->title(), *delegate, &AppDelegate::refreshPorts, nullptr);
    delegate->refreshButton = &other;
    EXPECT_FALSE(passes());
}

TEST_F(WindowSelfTest, ReportsATitleWithAnAmpersandAsItStands) {
    release.manifest.set("flash.confirmationText", R"("FLASH R&D")");
    writeRelease();
    pressRefresh();
    EXPECT_THAT(report(), testing::AllOf(testing::StartsWith("window_self_test=OK\n"),
                                         testing::EndsWith("\nflash_button_title=FLASH VERIFIED R&D\n")));
}

TEST_F(WindowSelfTest, IsNotScheduledWithoutItsArgument) {
    std::filesystem::remove(windowSelfTestReportPath);
    delegate->runWindowSelfTestIfRequested();
    // Due after the check would have been.
    bool later = false;
    mainQueue->postAfter(std::chrono::seconds(1), [&later] { later = true; });
    ASSERT_TRUE(waitUntil([&later] { return later; }));
    EXPECT_FALSE(std::filesystem::exists(windowSelfTestReportPath));
}

/// Here the test program itself was started with the argument.
class WithTheSelfTestArgument : public WindowTest {};

TEST_F(WithTheSelfTestArgument, ValidatesTheReleaseBeforeItLooks) {
    delegate->buildWindow();
    delegate->window->show();
    setApplicationIcon(release.resources() + "/AppIcon.icns");
    delegate->runWindowSelfTestIfRequested();
    testing::internal::CaptureStdout();
    const int status = QApplication::exec();
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::StartsWith("window_self_test=OK\n"));
    EXPECT_EQ(status, 0);
    std::filesystem::remove(windowSelfTestReportPath);
}

/// Notes for how long the last task is put off.
class DelayNotingQueue : public InMemoryMainQueue {
public:
    void postAfter(std::chrono::milliseconds delay, Task /*task*/) override { noted = delay; }

    std::chrono::milliseconds noted{};
};

TEST_F(WithTheSelfTestArgument, LooksAQuarterOfASecondAfterTheStart) {
    const auto queue = std::make_shared<DelayNotingQueue>();
    std::make_shared<AppDelegate>(queue, processEnvironment())->runWindowSelfTestIfRequested();
    EXPECT_EQ(queue->noted, std::chrono::milliseconds(250));
}

// fault: the window is gone before the window self-test looks at it
// seen: "window_self_test=FAILED delegate released"
TEST_F(WithTheSelfTestArgument, SaysThatTheDelegateIsGoneAndWritesNoReport) {
    std::filesystem::remove(windowSelfTestReportPath);
    delegate->runWindowSelfTestIfRequested();
    delegate.reset();
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    const int status = QApplication::exec();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "window_self_test=FAILED delegate released\n");
    EXPECT_EQ(status, 1);
    EXPECT_FALSE(std::filesystem::exists(windowSelfTestReportPath));
}

}  // namespace

}  // namespace qelmo
