#pragma once

#include <gmock/gmock.h>

#include <QAbstractEventDispatcher>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QMessageBox>
#include <QTimer>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/LaunchContext.h"
#include "tests/support/ReleaseFixture.h"
#include "tests/support/Waiting.h"
#include "ui/AppDelegate.h"
#include "ui/QtMainQueue.h"

class QLabel;

namespace qelmo {

/// Runs the event loop until `condition` holds. Returns false if it did not hold within the limit.
template <typename Condition>
[[nodiscard]] bool waitUntil(Condition condition) {
    if (condition()) return true;
    QEventLoop loop;
    QTimer look;
    const QDeadlineTimer limit(waitingLimit);
    bool holds = false, isChecking = false;
    const auto check = [&] {
        if (std::exchange(isChecking, true)) return;  // a condition may run the event loop itself
        holds = holds || condition();
        isChecking = false;
        if (holds || limit.hasExpired()) loop.quit();
    };
    // Most conditions become true through an event, the others through another process or thread.
    QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, &loop,
                     check);
    QObject::connect(&look, &QTimer::timeout, &loop, check);
    look.start(2);
    loop.exec();
    return holds;
}

[[nodiscard]] std::string textOf(const QLabel* label);
[[nodiscard]] std::vector<std::string> itemsOf(const QComboBox* menu);
[[nodiscard]] std::string hex(const QColor& colour);

/// One real window and its delegate. It has its own bundle (with a red icon), home folder and device folder.
class WindowTest : public ::testing::Test {
protected:
    WindowTest();
    ~WindowTest() override;

    /// Replaces the delegate with one for `context`.
    void replaceDelegate();
    /// Starts up like the application. Waits until the window is on the screen and its log is written.
    void launch();
    void writeRelease() const { release.writeManifest(release.manifest.text()); }
    /// Changes one field of the manifest in the bundle.
    void change(const std::string& field, const std::string& json);

    /// Makes a boot port appear and returns its path.
    std::string plugIn(const std::string& name);
    void unplug(const std::string& name) const;

    /// Installs this Python text as the tool. The real interpreter runs it.
    void setTool(const std::string& python) const;

    /// Presses the flash button and confirms.
    void startJob();
    [[nodiscard]] bool waitForEndOfJob() const;
    /// Waits until everything that was posted until now has run.
    void settle() const;

    /// The log's new text since the last call, after everything that was posted until now has run.
    std::string takeLog();

    void pressFlash() const;
    void pressRefresh() const;

    /// Checks that every control shows the delegate's state, and that the state's status is `status`.
    void expectShown(const std::string& status) const;

    ReleaseFixture release;
    LaunchContext context;
    std::shared_ptr<QtMainQueue> mainQueue = std::make_shared<QtMainQueue>();
    std::shared_ptr<AppDelegate> delegate;

private:
    void endUnexpectedAlert() const;

    std::vector<std::string> pluggedIn_;
    QTimer unexpectedAlerts_;
    qsizetype logTaken_ = 0;
};

/// A launched window with a valid release and one boot port.
class ReadyWindowTest : public WindowTest {
protected:
    ReadyWindowTest() { launch(); }

    const std::string port = plugIn("cu.usbmodem101");
};

}  // namespace qelmo
