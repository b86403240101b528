#include "tests/model/WindowModel.h"

#include <exception>
#include <utility>

#include "flashing/BootPorts.h"
#include "flashing/FlashCommand.h"
#include "flashing/FlashTexts.h"
#include "release/FlasherFailure.h"
#include "release/ReleaseTexts.h"

namespace qelmo {

void WindowModel::start() {
    alive = visible = hasOwner_ = true;
    validate(false);
}

void WindowModel::refresh() {
    if (!running) validate(true);
}

void WindowModel::validate(bool userInitiated) {
    PreviousRelease previous;
    if (resources) previous = {resources->manifest.version, resources->checksum};
    try {
        resources.emplace(FlasherResources::load(context_.bundleURL, context_.homeFolder));
    } catch (const std::exception& error) {
        resources.reset();
        state = state.withRefusedRelease(errorDescription(error));
        return append("STOP: " + errorDescription(error) + "\n");
    }
    for (const std::string& line : validationReport(*resources, userInitiated, previous)) append(line + "\n");
    ports = listBootPorts(context_.deviceFolder);
    chosenPort = 0;
    state = state.withRelease(*resources).withPorts(ports.size(), true);
    append(bootPortReport(ports.size()) + "\n");
}

void WindowModel::choosePort(int index) {
    if (state.canChoosePort && index < static_cast<int>(ports.size())) chosenPort = index;
}

void WindowModel::pressFlash() {
    if (running || alert || !resources) return;
    if (chosenPort < 0 || chosenPort >= static_cast<int>(ports.size())) return;
    flashed_.emplace(*resources);
    flashedPort_ = ports[static_cast<std::size_t>(chosenPort)];
    try {
        if (FlasherResources::load(context_.bundleURL, context_.homeFolder).checksum != flashed_->checksum)
            return showError(FlashTexts::releaseChanged);
    } catch (const std::exception& error) {
        return showError(errorDescription(error));
    }
    isConfirming_ = true;
    alert = {Alert::Style::critical,
             FlashTexts::confirmationMessage(flashed_->manifest.version),
             FlashTexts::confirmationDetails(flashedPort_),
             {FlashTexts::confirmButton, FlashTexts::cancelButton}};
}

void WindowModel::answer(bool byFirstButton) {
    alert.reset();
    if (std::exchange(isConfirming_, false)) {
        if (byFirstButton)
            startJob();
        else
            append(std::string(FlashTexts::cancelledLine) + "\n");
    }
    // An open alert keeps the delegate alive.
    if (!hasOwner_ && !alert) alive = false;
}

void WindowModel::startJob() {
    append(FlashTexts::startLine(flashedPort_) + "\n");
    if (!canLaunch) {
        state = state.launchFailed();
        return showError("start " + context_.interpreter + ": No such file or directory");
    }
    state = state.flashing();
    running = true;
    for (const std::string& argument : flashArguments(*flashed_, flashedPort_))
        command += (command.empty() ? "" : "\n") + argument;
}

void WindowModel::toolEnds(bool well) {
    command.clear();
    if (!alive) return;
    running = false;
    state = state.flashed(well);
    append(std::string(well ? FlashTexts::completeLine : FlashTexts::failedLine) + "\n");
    if (well)
        alert = {Alert::Style::informational,
                 FlashTexts::successMessage,
                 FlashTexts::successDetails(flashed_->manifest.version),
                 {FlashTexts::successButton}};
}

void WindowModel::letGo() {
    hasOwner_ = false;
    if (!alert) alive = false;
}

void WindowModel::runPosted() {
    if (alive) log += posted_;
    posted_.clear();
}

void WindowModel::showError(const std::string& reason) {
    alert = {Alert::Style::critical, "QELMO Flasher stopped", reason, {"OK"}};
}

}  // namespace qelmo
