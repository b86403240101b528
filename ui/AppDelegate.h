#pragma once

#include <QColor>
#include <QObject>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/ChildProcess.h"
#include "platform/MainQueue.h"
#include "release/FlasherResources.h"

class QComboBox;
class QWidget;

namespace qelmo {

class ActionButton;
class ActivityBar;
struct Alert;
class LogTextView;
class TextLabel;

/// Owns the one window, the release that was validated last and the flash process that is running. Every
/// action of the window is an operation of this class; what can be decided without a widget is decided in the
/// rooms below.
///
/// Threads: all fields and operations are the main thread's, except `appendLog`. Background threads hold the
///          delegate weakly and never resolve that reference themselves: only tasks of the main queue do.
/// Ownership: create it with std::make_shared; the windowed start holds it for the life of the event loop.
class AppDelegate : public QObject, public std::enable_shared_from_this<AppDelegate> {
public:
    AppDelegate(std::shared_ptr<MainQueue> mainQueue, std::vector<std::string> startedWith);
    ~AppDelegate() override;

    // The palette of the window.
    const QColor background;
    const QColor panel;
    const QColor foreground;
    const QColor muted;
    const QColor accent;
    const QColor warning;
    const QColor danger;

    // The window and its controls: empty until `buildWindow`, then there for the life of the delegate. The
    // controls belong to the window.
    std::unique_ptr<QWidget> window;
    TextLabel* releaseLabel = nullptr;
    TextLabel* statusLabel = nullptr;
    QComboBox* portPopup = nullptr;
    ActionButton* refreshButton = nullptr;
    ActionButton* flashButton = nullptr;
    ActivityBar* progress = nullptr;
    LogTextView* logTextView = nullptr;

    /// The release that passed validation last; none before the first validation and after a failed one.
    std::optional<FlasherResources> resources;
    /// The running tool. Its presence is the one busy flag.
    std::shared_ptr<ChildProcess> flashProcess;
    /// The boot ports found last, in the order of the port menu's items.
    std::vector<std::string> ports;
    /// The environment with which the program was started; the tool gets it.
    std::vector<std::string> environment;

    // Called by the application.
    void applicationDidFinishLaunching();
    [[nodiscard]] static bool applicationShouldTerminateAfterLastWindowClosed() { return true; }

    // The actions of the window's controls.
    void refreshBuildAndPorts();
    void refreshPorts();
    void flashDevice();

    void buildWindow();

    /// Loads and checks the embedded release, shows it or the reason why it was refused, and on success lists
    /// the ports. Never throws. The caller sees to it that no flash job runs.
    void validateReleaseAndRefresh(bool userInitiated);

    /// Adds text to the log, later, on the main thread, in the order of the calls. The only operation that
    /// may be called from any thread.
    void appendLog(std::string text, bool addNewline);

    /// Shows the alert for a failure and returns when it has been dismissed.
    void showError(const std::string& message);

    /// With "--window-self-test" among the process's arguments: checks the window a moment later, reports and
    /// ends the process.
    void runWindowSelfTestIfRequested();

private:
    using Weak = std::weak_ptr<AppDelegate>;

    static void postLog(MainQueue& queue, Weak delegate, std::string text, bool addNewline);
    static void checkWindow(const Weak& delegate);

    void showReleaseFailure(const std::string& description);
    [[nodiscard]] bool confirmsFlash(const FlasherResources& release, const std::string& port);
    void startFlashJob(const FlasherResources& release, const std::string& port);
    void showLaunchFailure(const std::string& description);
    void completeFlashJob(const ChildProcess& process, const FlasherResources& release);
    void setControlsEnabledAfterJob();
    void returnFocusAfterJob();
    void setStatus(const char* text, const QColor& colour);
    int runAlert(const Alert& alert);

    const std::shared_ptr<MainQueue> mainQueue_;
    /// One alert is answered at a time, also when an assistive tool presses a button behind an open one.
    bool alertIsOpen_ = false;
    /// The control that had the keyboard's focus at the start of the job, or null.
    QWidget* focusBeforeJob_ = nullptr;
};

}  // namespace qelmo
