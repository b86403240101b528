#include "ui/AppDelegate.h"

#include <QComboBox>
#include <QScopedValueRollback>
#include <QWidget>
#include <exception>
#include <utility>

#include "flashing/BootPorts.h"
#include "flashing/FlashCommand.h"
#include "flashing/FlashTexts.h"
#include "flashing/PortClaim.h"
#include "flashing/ToolProcess.h"
#include "platform/MainBundle.h"
#include "release/FlashButtonTitle.h"
#include "release/FlasherFailure.h"
#include "release/ReleaseTexts.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/Alert.h"
#include "ui/ApplicationIcon.h"
#include "ui/Colour.h"
#include "ui/LogTextView.h"
#include "ui/TextLabel.h"
#include "ui/WindowLayout.h"

namespace qelmo {

namespace {

void requireUnchangedRelease(const FlasherResources& validated) {
    if (FlasherResources::load(MainBundle::bundleURL()).checksum != validated.checksum)
        throw FlasherFailure(FlashTexts::releaseChanged);
}

}  // namespace

AppDelegate::AppDelegate(std::shared_ptr<MainQueue> mainQueue, std::vector<std::string> startedWith)
    : background(Palette::background()),
      panel(Palette::panel()),
      foreground(Palette::foreground()),
      muted(Palette::muted()),
      accent(Palette::accent()),
      warning(Palette::warning()),
      danger(Palette::danger()),
      environment(std::move(startedWith)),
      mainQueue_(std::move(mainQueue)) {}

AppDelegate::~AppDelegate() = default;

// Start-up ------------------------------------------------------------------------------------------------

void AppDelegate::applicationDidFinishLaunching() {
    setApplicationIcon(MainBundle::urlForApplicationIcon());
    buildWindow();
    window->show();
    window->raise();
    window->activateWindow();
    validateReleaseAndRefresh(false);
    runWindowSelfTestIfRequested();
}

void AppDelegate::buildWindow() {
    buildWindowLayout(*this);
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
        resources.emplace(FlasherResources::load(MainBundle::bundleURL()));
    } catch (const std::exception& error) {
        showReleaseFailure(errorDescription(error));
        return;
    }
    releaseLabel->setText(QString::fromStdString(releaseSummary(*resources)));
    flashButton->setTitle(QString::fromStdString(verifiedFlashButtonTitle(resources->manifest)));
    for (const std::string& line : validationReport(*resources, userInitiated, previous))
        appendLog(line, true);
    refreshPorts();
}

void AppDelegate::showReleaseFailure(const std::string& description) {
    resources.reset();
    releaseLabel->setText(QString::fromStdString(releaseFailureSummary(description)));
    setStatus("NOT READY", danger);
    appendLog("STOP: " + description, true);
    flashButton->setEnabled(false);
}

// The boot ports ------------------------------------------------------------------------------------------

void AppDelegate::refreshPorts() {
    if (flashProcess) return;
    ports = listBootPorts();
    portPopup->clear();
    if (ports.empty()) portPopup->addItem(QString::fromUtf8(noBootPortTitle));
    for (const std::string& port : ports) portPopup->addItem(QString::fromStdString(port));
    portPopup->setEnabled(!ports.empty());
    flashButton->setEnabled(!ports.empty() && resources.has_value());
    setStatus(bootPortStatus(ports.size()).c_str(), ports.empty() ? warning : accent);
    appendLog(bootPortReport(ports.size()), true);
}

// The flash job -------------------------------------------------------------------------------------------

void AppDelegate::flashDevice() {
    if (flashProcess || alertIsOpen_) return;
    if (!resources) return;
    // The whole job works on this copy; a refresh while an alert is open does not reach it.
    const FlasherResources release = *resources;
    const int selected = portPopup->currentIndex();
    if (selected < 0 || static_cast<std::size_t>(selected) >= ports.size()) return;
    const std::string port = ports[static_cast<std::size_t>(selected)];

    // The alerts below run the event loop, in which the last other owner may let go.
    const auto self = shared_from_this();
    try {
        requireUnchangedRelease(release);
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
        {pythonPath, flashArguments(release, port), environment}, mainQueue_,
        {[weak, queue = mainQueue_](std::string text) { postLog(*queue, weak, std::move(text), false); },
         [weak, release](const std::shared_ptr<ChildProcess>& process) {
             if (const auto delegate = weak.lock()) delegate->completeFlashJob(*process, release);
         }});

    focusBeforeJob_ = window->focusWidget();
    flashButton->setEnabled(false);
    refreshButton->setEnabled(false);
    portPopup->setEnabled(false);
    progress->startAnimation();
    setStatus(FlashTexts::runningStatus, warning);
    appendLog(FlashTexts::startLine(port), true);

    try {
        flashProcess->holdUntilExit(claimPort(port));
        flashProcess->launchSupervised();
    } catch (const std::exception& error) {
        showLaunchFailure(errorDescription(error));
    }
}

void AppDelegate::showLaunchFailure(const std::string& description) {
    flashProcess->clearOutputHandler();
    setControlsEnabledAfterJob();
    flashButton->setEnabled(true);
    returnFocusAfterJob();
    setStatus(FlashTexts::launchFailedStatus, danger);
    showError(description);
}

void AppDelegate::completeFlashJob(const ChildProcess& process, const FlasherResources& release) {
    setControlsEnabledAfterJob();
    const bool succeeded = process.terminationStatus() == 0;
    setStatus(succeeded ? FlashTexts::completeStatus : FlashTexts::failedStatus, succeeded ? accent : danger);
    appendLog(succeeded ? FlashTexts::completeLine : FlashTexts::failedLine, true);
    flashButton->setEnabled(true);
    returnFocusAfterJob();
    if (!succeeded) return;
    runAlert({Alert::Style::informational,
              FlashTexts::successMessage,
              FlashTexts::successDetails(release.manifest.version),
              {FlashTexts::successButton}});
}

void AppDelegate::setControlsEnabledAfterJob() {
    flashProcess.reset();
    progress->stopAnimation();
    refreshButton->setEnabled(true);
    portPopup->setEnabled(true);
}

void AppDelegate::returnFocusAfterJob() {
    // The toolkit moves it on when the control that has it is disabled.
    if (focusBeforeJob_ != nullptr) focusBeforeJob_->setFocus();
}

// Log, status and alerts ----------------------------------------------------------------------------------

void AppDelegate::appendLog(std::string text, bool addNewline) {
    postLog(*mainQueue_, weak_from_this(), std::move(text), addNewline);
}

void AppDelegate::postLog(MainQueue& queue, Weak delegate, std::string text, bool addNewline) {
    queue.post([delegate = std::move(delegate), text = logText(std::move(text), addNewline)] {
        if (const auto existing = delegate.lock()) existing->logTextView->append(text);
    });
}

void AppDelegate::showError(const std::string& message) {
    runAlert({Alert::Style::critical, "QELMO Flasher stopped", message, {"OK"}});
}

void AppDelegate::setStatus(const char* text, const QColor& colour) {
    statusLabel->setText(QString::fromUtf8(text));
    statusLabel->setColour(colour);
}

int AppDelegate::runAlert(const Alert& alert) {
    const QScopedValueRollback open(alertIsOpen_, true);
    return alert.runModal(window.get());
}

}  // namespace qelmo
