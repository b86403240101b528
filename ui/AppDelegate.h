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

/// Owns the one window, the release that was validated last and the running flash process. Every action of
/// the window is an operation of this class; what needs no widget is decided in the rooms below.
///
/// Threads: all fields and operations are the main thread's, except `appendLog`. Background threads hold the
///          delegate weakly and never resolve that reference themselves: only tasks of the main queue do.
/// Ownership: create it with std::make_shared; the windowed start holds it for the life of the event loop.
class AppDelegate : public QObject, public std::enable_shared_from_this<AppDelegate> {
public:
    /// Checks the live window and ends the process; the delegate may be gone.
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
    const LaunchContext context;

    void applicationDidFinishLaunching();
    [[nodiscard]] static bool applicationShouldTerminateAfterLastWindowClosed() { return true; }

    void refreshBuildAndPorts();
    void refreshPorts();
    void flashDevice();

    void buildWindow();

    /// Loads and checks the embedded release, shows it or the reason why it was refused, and on success lists
    /// the ports. Never throws. The caller sees to it that no flash job runs.
    void validateReleaseAndRefresh(bool userInitiated);

    /// Adds text to the log, later, on the main thread, in the order of the calls, with a line feed at its
    /// end if one is asked for and not there yet. The only operation that may be called from any thread.
    void appendLog(std::string text, bool addNewline);

    /// Returns when the alert has been dismissed.
    void showError(const std::string& message);

    /// With "--window-self-test" among the arguments: runs the window's check a moment later.
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
    /// One alert is answered at a time, also when an assistive tool presses a button behind an open one.
    bool alertIsOpen_ = false;
    /// The control that had the keyboard's focus at the start of the job, or null.
    QWidget* focusBeforeJob_ = nullptr;
};

}  // namespace qelmo
