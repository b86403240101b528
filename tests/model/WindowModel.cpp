#include "tests/model/WindowModel.h"

#include <utility>

namespace qelmo {

namespace {

constexpr const char* foreground = "#f0f0f0";
constexpr const char* accent = "#1fd4ed";
constexpr const char* warning = "#ffa333";
constexpr const char* danger = "#ff4d4a";

constexpr const char* firstDigest = "f45c4a602c75191bc35777f929cfbeab8ca84a6b74a05e158a99c765f96798c9";
constexpr const char* otherDigest = "5a6630972baedcd2374c8b969c06f3d604d0ccede3a4997d5e14b18b9d6703b7";

bool isBootPort(const std::string& name) {
    for (const char* beginning : {"cu.usbmodem", "cu.usbserial", "cu.SLAB_USBtoUART", "cu.wchusbserial"})
        if (name.rfind(beginning, 0) == 0) return true;
    return false;
}

std::string listOf(const std::vector<std::string>& texts) {
    std::string list;
    for (const std::string& text : texts) list += (list.empty() ? "" : " | ") + text;
    return "[" + list + "]";
}

/// Line feeds can be seen.
std::string onOneLine(const std::string& text) {
    std::string line;
    for (const char unit : text) line += unit == '\n' ? "\\n" : std::string(1, unit);
    return line;
}

std::string control(const std::string& text, bool enabled) {
    return text + (enabled ? " (enabled)" : " (disabled)");
}

}  // namespace

std::vector<std::string> WindowState::lines() const {
    std::vector<std::string> lines{"delegate: " + std::string(alive ? "there" : "gone"),
                                   "command:  " + onOneLine(command)};
    if (!alive) return lines;
    const std::vector<std::string> window{
        "window:   " + std::string(visible ? "visible" : "hidden"),
        "panel:    " + onOneLine(panel) + " " + panelColour,
        "status:   " + status + " " + statusColour,
        "menu:     " + control(listOf(menu) + " at " + std::to_string(chosen), menuEnabled),
        "refresh:  " + control(refreshTitle, refreshEnabled),
        "flash:    " + control(flashTitle, flashEnabled),
        "progress: " + std::string(animating ? "animated" : "still"),
        "release:  " + validated,
        "process:  " + std::string(running ? "present" : "none"),
        "ports:    " + listOf(ports),
        "log:      " + onOneLine(log) + " " + logColour,
        "alert:    " + onOneLine(alert)};
    lines.insert(lines.end(), window.begin(), window.end());
    return lines;
}

std::string alertText(const std::string& message, const std::string& details, bool critical,
                      const std::vector<std::string>& buttons, const std::string& defaultButton) {
    return (critical ? "critical: " : "informational: ") + message + " / " + details + " " + listOf(buttons) +
           ", default " + defaultButton;
}

// The world -------------------------------------------------------------------------------------------------

WindowModel::Verdict WindowModel::verdict() const {
    const auto valid = [this](const Release& release) -> Verdict {
        if (hasTool_) return {release, ""};
        return {{}, "The local Espressif tool is missing. Run BUILD-FULL-MAC.command once."};
    };
    const Release first{"1.0.0", "65537", firstDigest, "FLASH VERIFIED VARNOX"};
    switch (bundle_) {
        case BundleState::firstRelease:
            return valid(first);
        case BundleState::otherRelease:
            return valid({"2.0.0", "65537", otherDigest, "FLASH VERIFIED VARNOX"});
        case BundleState::otherBytes:
            return valid({"1.0.0", "65537", otherDigest, "FLASH VERIFIED VARNOX"});
        case BundleState::otherVersion:
            return valid({"1.0.1", "65537", firstDigest, "FLASH VERIFIED VARNOX"});
        case BundleState::otherOptions:
            return valid({"1.0.0", "65537", firstDigest, "FLASH VERIFIED R&D", "115200", false});
        case BundleState::noFolder:
        case BundleState::noManifest:
            return {{}, "The embedded flash manifest is missing."};
        case BundleState::notJson:
            return {{}, surroundings_.notJson};
        case BundleState::wrongSchema:
        case BundleState::wrongSchemaAndChip:
            return {{}, "The embedded flash manifest version is unsupported."};
        case BundleState::wrongChip:
            return {{}, "This release is not locked to ESP32-S3."};
        case BundleState::wrongAddress:
            return {{}, "The complete firmware must flash at address 0x0."};
        case BundleState::wrongFlashSize:
        case BundleState::wrongFlashMode:
            return {{}, "The embedded flash geometry is not Cardputer ADV safe."};
        case BundleState::noImage:
            return {{}, surroundings_.noImage};
        case BundleState::wrongLength:
            return {{}, "The embedded firmware size does not match its manifest."};
        case BundleState::wrongShape:
            return {{}, "The embedded file is not a complete QELMO firmware image."};
        case BundleState::wrongDigest:
            return {{}, "The embedded firmware checksum is not trusted."};
    }
    return {};
}

// Steps -----------------------------------------------------------------------------------------------------

bool WindowModel::canChange(const Step& step) const {
    const bool first = step.variant == 0;
    switch (step.action) {
        case Action::start:
            return !hasStarted_;
        case Action::bundle:
            return static_cast<BundleState>(step.variant) != bundle_;
        case Action::plug:
            return devices_.size() < 3 &&
                   !devices_.count(deviceNames()[static_cast<std::size_t>(step.variant)]);
        case Action::unplug:
            return devices_.count(deviceNames()[static_cast<std::size_t>(step.variant)]) != 0;
        case Action::tool:
            return hasTool_ == first && !alertIsOpen();
        case Action::launch:
            return canLaunch_ == first;
        case Action::refresh:
        case Action::flash:
        case Action::append:
            return state_.alive;
        case Action::choose:
            return state_.menuEnabled && step.variant < static_cast<int>(state_.menu.size()) &&
                   step.variant != state_.chosen;
        case Action::answer:
            return alertIsOpen();
        case Action::say:
        case Action::end:
            return toolRuns();
        case Action::close:
            return state_.visible;
        case Action::letGo:
            return hasOwner_;
    }
    return false;
}

void WindowModel::apply(const Step& step) {
    const auto variant = static_cast<std::size_t>(step.variant);
    switch (step.action) {
        case Action::start:
            if (!hasStarted_) start();
            return;
        case Action::bundle:
            bundle_ = static_cast<BundleState>(step.variant);
            return;
        case Action::plug:
            devices_.insert(deviceNames()[variant]);
            return;
        case Action::unplug:
            devices_.erase(deviceNames()[variant]);
            return;
        case Action::tool:
            if (!alertIsOpen()) hasTool_ = variant == 1;
            return;
        case Action::launch:
            canLaunch_ = variant == 1;
            return;
        case Action::end:
            if (toolRuns()) endJob(static_cast<Ending>(step.variant));
            return;
        default:
            break;
    }
    if (!state_.alive) return;
    switch (step.action) {
        case Action::refresh:
            if (variant == 0 && !state_.refreshEnabled) return;
            if (!state_.running) validate(true);
            return;
        case Action::flash:
            if (variant == 0 && !state_.flashEnabled) return;
            pressFlash();
            return;
        case Action::choose:
            if (state_.menuEnabled && variant < state_.menu.size()) state_.chosen = step.variant;
            return;
        case Action::answer:
            if (alertIsOpen()) answer(static_cast<Answer>(step.variant));
            return;
        case Action::say:
            if (toolRuns())
                post(variant == 0   ? "Writing at 0x00010000... (12 %)\n"
                     : variant == 1 ? "a warning\n"
                                    : "\uFFFD");
            return;
        case Action::append:
            post(variant == 0 ? "a late chunk" : "a late line\n");
            return;
        case Action::close:
            state_.visible = false;
            return;
        case Action::letGo:
            letGo();
            return;
        default:
            return;
    }
}

void WindowModel::runPosted() {
    if (state_.alive) state_.log += posted_;
    posted_.clear();
}

// The window ------------------------------------------------------------------------------------------------

void WindowModel::start() {
    hasStarted_ = hasOwner_ = true;
    state_.alive = state_.visible = true;
    state_.panel = "Validating embedded release…";
    state_.panelColour = state_.logColour = foreground;
    state_.menuEnabled = true;
    state_.refreshTitle = "REFRESH BUILD";
    state_.refreshEnabled = true;
    state_.flashTitle = "VALIDATING RELEASE";
    validate(false);
}

void WindowModel::validate(bool userInitiated) {
    const std::optional<Release> before = validated_;
    const Verdict found = verdict();
    validated_ = found.release;
    if (!validated_) {
        state_.validated = "";
        state_.panel = "RELEASE VALIDATION FAILED\n" + found.reason;
        show("NOT READY", danger);
        post("STOP: " + found.reason + "\n");
        state_.flashEnabled = false;
        return;
    }
    const Release& now = *validated_;
    state_.validated = now.version + " " + now.size + " " + now.digest;
    state_.panel = "Varnox  //  " + now.version + "\n" + now.size + " bytes  •  SHA-256 " +
                   now.digest.substr(0, 16) + "…  •  ESP32-S3 / 8 MB / DIO / 80 MHz";
    state_.flashTitle = now.title;
    if (!userInitiated || !before) {
        post("Embedded full image verified.\n");
    } else if (before->digest == now.digest && before->version == now.version) {
        post("Build already current: " + now.version + ".\n");
    } else {
        post("NEW BUILD LOADED: " + before->version + " → " + now.version + ".\n");
    }
    post("SHA-256  " + now.digest + "\nAddress   0x0\nSD card   not accessed by this application\n");
    listPorts();
}

void WindowModel::listPorts() {
    state_.ports.clear();
    // The set is in the order of the bytes.
    for (const std::string& name : devices_)
        if (isBootPort(name)) state_.ports.push_back("/dev/" + name);
    const std::size_t count = state_.ports.size();
    state_.menu = count > 0 ? state_.ports : std::vector<std::string>{"No ESP32-S3 boot port found"};
    state_.chosen = 0;
    state_.menuEnabled = state_.flashEnabled = count > 0;
    if (count == 0) {
        show("WAITING FOR G0 BOOT PORT", warning);
        post(
            "No boot port found. Put the Cardputer ADV into G0 boot mode, connect USB, then press REFRESH "
            "BUILD.\n");
        return;
    }
    show(count == 1 ? "READY" : "CHOOSE CARDPUTER PORT", accent);
    post("Found " + std::to_string(count) +
         (count == 1 ? " candidate boot port.\n" : " candidate boot ports.\n"));
}

void WindowModel::pressFlash() {
    if (state_.running || alertIsOpen() || !validated_) return;
    if (state_.chosen < 0 || state_.chosen >= static_cast<int>(state_.ports.size())) return;
    flashed_ = *validated_;
    flashedPort_ = state_.ports[static_cast<std::size_t>(state_.chosen)];
    const Verdict found = verdict();
    if (!found.release) return showError(found.reason);
    if (found.release->digest != flashed_.digest)
        return showError("The embedded release changed after validation.");
    asksForConfirmation_ = true;
    state_.alert =
        alertText("Erase internal flash and install " + flashed_.version + "?",
                  "Device: " + flashedPort_ +
                      "\n\nThis erases the Cardputer ADV internal 8 MB flash, writes the complete verified "
                      "image at 0x0, verifies it, and resets the device. The SD card is not mounted or "
                      "accessed.",
                  true, {"ERASE + FLASH", "Cancel"}, "ERASE + FLASH");
}

void WindowModel::answer(Answer answer) {
    const bool asked = std::exchange(asksForConfirmation_, false);
    state_.alert = "";
    if (asked && (answer == Answer::firstButton || answer == Answer::returnKey)) {
        startJob();
    } else if (asked) {
        post("Flash cancelled. Nothing was written.\n");
    }
    // An alert that was open kept the delegate for a while.
    if (!hasOwner_ && !alertIsOpen()) state_.alive = false;
}

std::string WindowModel::command() const {
    return surroundings_.tool + "\n--chip\nesp32s3\n--port\n" + flashedPort_ + "\n--baud\n" + flashed_.baud +
           "\n--before\ndefault_reset\n--after\nhard_reset\nwrite_flash\n" +
           (flashed_.erase ? "--erase-all\n" : "") +
           "--flash_mode\ndio\n--flash_freq\n80m\n--flash_size\n8MB\n--verify\n0x0\n" + surroundings_.image;
}

void WindowModel::startJob() {
    post("\nStarting verified full-image flash on " + flashedPort_ + "…\n");
    if (!canLaunch_) {
        giveControlsBack();
        show("FLASHER COULD NOT START", danger);
        return showError(surroundings_.noLaunch);
    }
    state_.flashEnabled = state_.refreshEnabled = state_.menuEnabled = false;
    state_.running = state_.animating = true;
    show("FLASHING — DO NOT DISCONNECT", warning);
    state_.command = command();
}

void WindowModel::endJob(Ending ending) {
    state_.command = "";
    if (!state_.alive) return;
    giveControlsBack();
    if (ending != Ending::exitWell) {
        show("FLASH FAILED", danger);
        post("\nFLASH FAILED — keep USB connected, return to G0 boot mode, and retry.\n");
        return;
    }
    show("FLASH COMPLETE", accent);
    post("\nFLASH COMPLETE — verified and reset. SD card was not accessed.\n");
    state_.alert =
        alertText("QELMO Varnox is installed",
                  flashed_.version +
                      " was written and verified. If the Cardputer remains in boot mode, power-cycle it "
                      "normally without holding G0.",
                  false, {"Done"}, "Done");
}

void WindowModel::letGo() {
    hasOwner_ = false;
    if (alertIsOpen()) return;
    state_.alive = false;
}

void WindowModel::giveControlsBack() {
    state_.running = state_.animating = false;
    state_.flashEnabled = state_.refreshEnabled = state_.menuEnabled = true;
}

void WindowModel::show(const char* status, const char* colour) {
    state_.status = status;
    state_.statusColour = colour;
}

void WindowModel::showError(const std::string& reason) {
    state_.alert = alertText("QELMO Flasher stopped", reason, true, {"OK"}, "OK");
}

}  // namespace qelmo
