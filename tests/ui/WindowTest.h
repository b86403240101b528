#pragma once

#include <gmock/gmock.h>

#include <QTimer>
#include <memory>
#include <string>
#include <vector>

#include "platform/ThisProcess.h"
#include "tests/support/ReleaseFixture.h"
#include "tests/ui/AlertAnswer.h"
#include "tests/ui/BootPort.h"
#include "tests/ui/EventLoop.h"
#include "ui/AppDelegate.h"
#include "ui/QtMainQueue.h"

class QLabel;

namespace qelmo {

/// The red icon that a test's bundle holds, as the bytes of an ICNS file.
[[nodiscard]] std::string redIcon();

/// What one control shows.
[[nodiscard]] std::string textOf(const QLabel* label);
[[nodiscard]] std::vector<std::string> itemsOf(const QComboBox* menu);
[[nodiscard]] std::string hex(const QColor& colour);

/// One real window with its delegate, over a release of its own: this program's main bundle holds the
/// fixture's release and an icon, and HOME the flashing tool that `setTool` describes.
class WindowTest : public ::testing::Test {
protected:
    WindowTest();
    ~WindowTest() override;

    /// Starts up like the application and waits until the window is on the screen and its log is written.
    void launch();
    void writeRelease() const { release.writeManifest(release.manifest.text()); }

    /// The tool is this Python text from now on; it is run by the real interpreter.
    void setTool(const std::string& python) const;

    /// Runs a valid release's flash job from the press to its end, answering its alerts.
    void runSuccessfulJob();
    /// Presses the flash button and confirms.
    void startJob();
    [[nodiscard]] bool waitForEndOfJob() const;
    /// Waits until everything that was posted until now has run.
    void settle() const;

    /// The log's new text since the last call, with everything that was posted until now.
    std::string takeLog();

    void pressFlash() const;
    void pressRefresh() const;

    ReleaseFixture release;
    std::shared_ptr<QtMainQueue> mainQueue = std::make_shared<QtMainQueue>();
    std::shared_ptr<AppDelegate> delegate = std::make_shared<AppDelegate>(mainQueue, processEnvironment());

private:
    void endUnexpectedAlert() const;

    QTimer unexpectedAlerts_;
    qsizetype logTaken_ = 0;
};

/// A window over a valid release and one boot port, launched.
class ReadyWindowTest : public WindowTest {
protected:
    ReadyWindowTest() { launch(); }

    const BootPort port{"cu.usbmodem101"};
};

}  // namespace qelmo
