#pragma once

#include <QObject>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "flashing/WindowState.h"
#include "platform/ChildProcess.h"
#include "platform/LaunchContext.h"
#include "platform/MainQueue.h"
#include "release/FlasherResources.h"
#include "ui/Look.h"

class QComboBox;
class QWidget;

namespace qelmo {

class ActionButton;
class ActivityBar;
struct Alert;
class LogTextView;
class TextLabel;

/// Owns the one window, the last validated release and the running flash process. Every action of the window
/// is an operation of this class. The layers below make all decisions that do not need a widget.
///
/// Threads: use all fields and operations on the main thread only, except `appendLog`. Background threads
///          hold weak references to the delegate, and only tasks of the main queue resolve them.
/// Ownership: create it with std::make_shared. `app/WindowedStart.cpp` owns it while the event loop runs.
class AppDelegate : public QObject, public std::enable_shared_from_this<AppDelegate> {
public:
    /// Checks the live window and ends the process. `delegate` is null if it no longer exists.
    using WindowCheck = std::function<void(const std::shared_ptr<AppDelegate>& delegate)>;

    AppDelegate(std::shared_ptr<MainQueue> mainQueue, LaunchContext context, WindowCheck windowCheck);
    ~AppDelegate() override;

    const QColor background = Palette::background();
    const QColor panel = Palette::panel();
    const QColor foreground = Palette::foreground();
    const QColor muted = Palette::muted();
    const QColor accent = Palette::accent();
    const QColor warning = Palette::warning();
    const QColor danger = Palette::danger();

    // The window and its controls: null until `buildWindow`, then valid for the life of the delegate. The
    // window owns the controls.
    std::unique_ptr<QWidget> window;
    TextLabel* releaseLabel = nullptr;
    TextLabel* statusLabel = nullptr;
    QComboBox* portPopup = nullptr;
    ActionButton* refreshButton = nullptr;
    ActionButton* flashButton = nullptr;
    ActivityBar* progress = nullptr;
    LogTextView* logTextView = nullptr;

    /// The last validated release. Empty before the first validation and after a failed one.
    std::optional<FlasherResources> resources;
    /// The running tool. Set exactly while a flash job runs: operations test it to learn whether one runs.
    std::shared_ptr<ChildProcess> flashProcess;
    /// The boot ports found last, in the order of the port menu's items.
    std::vector<std::string> ports;
    const LaunchContext context;

    void applicationDidFinishLaunching();
    [[nodiscard]] static bool applicationShouldTerminateAfterLastWindowClosed() { return true; }

    void refreshBuildAndPorts();
    void refreshPorts();
    void flashDevice();

    void buildWindow();

    /// Loads and checks the embedded release, shows it or the reason why it was refused, and on success lists
    /// the ports. Never throws. The caller makes sure that no flash job is running.
    void validateReleaseAndRefresh(bool userInitiated);

    /// Posts text to the log, in the order of the calls. With `addNewline`, adds a line feed unless the text
    /// ends with one. The only operation that may be called from any thread.
    void appendLog(std::string text, bool addNewline);

    /// Shows the error alert and returns when it has been dismissed.
    void showError(const std::string& message);

    /// Schedules the check of the window if "--window-self-test" is among the arguments.
    void runWindowSelfTestIfRequested();

    [[nodiscard]] const WindowState& state() const { return state_; }

private:
    using Weak = std::weak_ptr<AppDelegate>;

    static void postLog(MainQueue& queue, Weak delegate, std::string text, bool addNewline);

    void show(const WindowState& next);
    [[nodiscard]] bool confirmsFlash(const FlasherResources& release, const std::string& port);
    void startFlashJob(const FlasherResources& release, const std::string& port);
    void completeFlashJob(const ChildProcess& process, const FlasherResources& release);
    void endFlashJob(const WindowState& next);
    [[nodiscard]] const QColor& colourOf(WindowState::Colour colour) const;
    int runAlert(const Alert& alert);

    const std::shared_ptr<MainQueue> mainQueue_;
    const WindowCheck windowCheck_;
    WindowState state_;
    /// True while an alert is open: the flash button then does nothing, even if an assistive tool presses it.
    bool alertIsOpen_ = false;
    /// The control that had the keyboard focus when the job started, or null.
    QWidget* focusBeforeJob_ = nullptr;
};

}  // namespace qelmo
