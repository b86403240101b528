#include "ui/AppDelegate.h"

#include <QComboBox>
#include <QScopedValueRollback>
#include <QWidget>
#include <chrono>
#include <exception>
#include <utility>

#include "flashing/BootPorts.h"
#include "flashing/FlashCommand.h"
#include "flashing/FlashTexts.h"
#include "flashing/PortClaim.h"
#include "flashing/ToolProcessSetUp.h"
#include "release/FlasherFailure.h"
#include "release/ReleaseTexts.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/Alert.h"
#include "ui/DesktopLook.h"
#include "ui/LogTextView.h"
#include "ui/TextLabel.h"
#include "ui/WindowLayout.h"

namespace qelmo {

namespace {

FlasherResources embeddedRelease(const LaunchContext& context) {
    return FlasherResources::load(context.bundleURL, context.homeFolder);
}

}  // namespace

AppDelegate::AppDelegate(std::shared_ptr<MainQueue> mainQueue, LaunchContext launchContext,
                         WindowCheck windowCheck)
    : context(std::move(launchContext)),
      mainQueue_(std::move(mainQueue)),
      windowCheck_(std::move(windowCheck)) {}

AppDelegate::~AppDelegate() = default;

// Start-up ------------------------------------------------------------------------------------------------

void AppDelegate::applicationDidFinishLaunching() {
    setApplicationIcon(applicationIconURL(context.bundleURL));
    buildWindow();
    window->show();
    window->raise();
    window->activateWindow();
    validateReleaseAndRefresh(false);
    runWindowSelfTestIfRequested();
}

void AppDelegate::buildWindow() {
    buildWindowLayout(*this);
    show({});
}

void AppDelegate::runWindowSelfTestIfRequested() {
    if (!context.hasArgument("--window-self-test")) return;
    mainQueue_->postAfter(std::chrono::milliseconds(250),
                          [weak = weak_from_this(), check = windowCheck_] { check(weak.lock()); });
}

// The embedded release ------------------------------------------------------------------------------------

void AppDelegate::refreshBuildAndPorts() {
    if (flashProcess) return;
    validateReleaseAndRefresh(true);
}

void AppDelegate::validateReleaseAndRefresh(bool userInitiated) {
    PreviousRelease previous;
    if (resources) previous = {resources->manifest.version, resources->checksum};
    try {
        resources.emplace(embeddedRelease(context));
    } catch (const std::exception& error) {
        const std::string description = errorDescription(error);
        resources.reset();
        show(state_.withRefusedRelease(description));
        appendLog("STOP: " + description, true);
        return;
    }
    state_ = state_.withRelease(*resources);
    for (const std::string& line : validationReport(*resources, userInitiated, previous))
        appendLog(line, true);
    refreshPorts();
}

// The boot ports ------------------------------------------------------------------------------------------

void AppDelegate::refreshPorts() {
    if (flashProcess) return;
    ports = listBootPorts(context.deviceFolder);
    portPopup->clear();
    if (ports.empty()) portPopup->addItem(QString::fromUtf8(noBootPortTitle));
    for (const std::string& port : ports) portPopup->addItem(QString::fromStdString(port));
    show(state_.withPorts(ports.size(), resources.has_value()));
    appendLog(bootPortReport(ports.size()), true);
}

// The flash job -------------------------------------------------------------------------------------------

void AppDelegate::flashDevice() {
    if (flashProcess || alertIsOpen_) return;
    if (!resources) return;
    // The whole job uses this copy, so a refresh while an alert is open does not affect it.
    const FlasherResources release = *resources;
    const int selected = portPopup->currentIndex();
    if (selected < 0 || static_cast<std::size_t>(selected) >= ports.size()) return;
    const std::string port = ports[static_cast<std::size_t>(selected)];

    // The alerts below run the event loop, and the last other owner may release the delegate meanwhile.
    const auto self = shared_from_this();
    try {
        if (embeddedRelease(context).checksum != release.checksum)
            throw FlasherFailure(FlashTexts::releaseChanged);
    } catch (const std::exception& error) {
        showError(errorDescription(error));
        return;
    }
    if (!confirmsFlash(release, port)) {
        appendLog(FlashTexts::cancelledLine, true);
        return;
    }
    startFlashJob(release, port);
}

bool AppDelegate::confirmsFlash(const FlasherResources& release, const std::string& port) {
    return runAlert({Alert::Style::critical,
                     FlashTexts::confirmationMessage(release.manifest.version),
                     FlashTexts::confirmationDetails(port),
                     {FlashTexts::confirmButton, FlashTexts::cancelButton}}) == Alert::firstButtonReturn;
}

void AppDelegate::startFlashJob(const FlasherResources& release, const std::string& port) {
    const Weak weak = weak_from_this();
    flashProcess = setUpToolProcess(
        flashCommand(context, release, port), mainQueue_,
        {[weak, queue = mainQueue_](std::string text) { postLog(*queue, weak, std::move(text), false); },
         [weak, release](const std::shared_ptr<ChildProcess>& process) {
             if (const auto delegate = weak.lock()) delegate->completeFlashJob(*process, release);
         }});

    focusBeforeJob_ = window->focusWidget();
    show(state_.flashing());
    appendLog(FlashTexts::startLine(port), true);

    try {
        flashProcess->holdUntilExit(claimPort(port));
        flashProcess->launch();
    } catch (const std::exception& error) {
        flashProcess->clearOutputHandler();
        endFlashJob(state_.launchFailed());
        showError(errorDescription(error));
    }
}

void AppDelegate::completeFlashJob(const ChildProcess& process, const FlasherResources& release) {
    const bool succeeded = process.terminationStatus() == 0;
    endFlashJob(state_.flashed(succeeded));
    appendLog(succeeded ? FlashTexts::completeLine : FlashTexts::failedLine, true);
    if (!succeeded) return;
    runAlert({Alert::Style::informational,
              FlashTexts::successMessage,
              FlashTexts::successDetails(release.manifest.version),
              {FlashTexts::successButton}});
}

void AppDelegate::endFlashJob(const WindowState& next) {
    flashProcess.reset();
    show(next);
    // Qt moves the focus to another control when the focused one is disabled.
    if (focusBeforeJob_ != nullptr) focusBeforeJob_->setFocus();
}

// Log, status and alerts ----------------------------------------------------------------------------------

void AppDelegate::appendLog(std::string text, bool addNewline) {
    postLog(*mainQueue_, weak_from_this(), std::move(text), addNewline);
}

void AppDelegate::postLog(MainQueue& queue, Weak delegate, std::string text, bool addNewline) {
    if (addNewline && !text.ends_with('\n')) text += '\n';
    queue.post([delegate = std::move(delegate), text = std::move(text)] {
        if (const auto existing = delegate.lock()) existing->logTextView->append(text);
    });
}

void AppDelegate::showError(const std::string& message) {
    runAlert({Alert::Style::critical, "QELMO Flasher stopped", message, {"OK"}});
}

void AppDelegate::show(const WindowState& next) {
    state_ = next;
    releaseLabel->setText(QString::fromStdString(next.release));
    statusLabel->setText(QString::fromStdString(next.status));
    statusLabel->setColour(colourOf(next.statusColour));
    flashButton->setTitle(QString::fromStdString(next.flashTitle));
    flashButton->setEnabled(next.canFlash);
    refreshButton->setEnabled(next.canRefresh);
    portPopup->setEnabled(next.canChoosePort);
    progress->setAnimating(next.isBusy);
}

const QColor& AppDelegate::colourOf(WindowState::Colour colour) const {
    if (colour == WindowState::Colour::accent) return accent;
    return colour == WindowState::Colour::warning ? warning : danger;
}

int AppDelegate::runAlert(const Alert& alert) {
    const QScopedValueRollback open(alertIsOpen_, true);
    return alert.runModal(window.get());
}

}  // namespace qelmo
