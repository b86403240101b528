#include "flashing/WindowState.h"

#include <utility>

#include "release/ReleaseTexts.h"

namespace qelmo {

WindowState WindowState::withRelease(const FlasherResources& loaded) const {
    WindowState next = *this;
    next.release = releaseSummary(loaded);
    next.flashTitle = verifiedFlashButtonTitle(loaded.manifest);
    return next;
}

WindowState WindowState::withRefusedRelease(const std::string& description) const {
    WindowState next = withStatus("NOT READY", Colour::danger);
    next.release = "RELEASE VALIDATION FAILED\n" + description;
    next.canFlash = false;
    return next;
}

WindowState WindowState::withPorts(std::size_t portCount, bool hasRelease) const {
    WindowState next = withStatus("WAITING FOR G0 BOOT PORT", Colour::warning);
    if (portCount > 0) next = withStatus(portCount == 1 ? "READY" : "CHOOSE CARDPUTER PORT", Colour::accent);
    next.canChoosePort = portCount > 0;
    next.canFlash = portCount > 0 && hasRelease;
    return next;
}

WindowState WindowState::flashing() const {
    WindowState next = withStatus("FLASHING — DO NOT DISCONNECT", Colour::warning);
    next.canFlash = next.canRefresh = next.canChoosePort = false;
    next.isBusy = true;
    return next;
}

WindowState WindowState::launchFailed() const {
    return idle().withStatus("FLASHER COULD NOT START", Colour::danger);
}

WindowState WindowState::flashed(bool succeeded) const {
    return succeeded ? idle().withStatus("FLASH COMPLETE", Colour::accent)
                     : idle().withStatus("FLASH FAILED", Colour::danger);
}

WindowState WindowState::withStatus(std::string text, Colour colour) const {
    WindowState next = *this;
    next.status = std::move(text);
    next.statusColour = colour;
    return next;
}

WindowState WindowState::idle() const {
    WindowState next = *this;
    next.canFlash = next.canRefresh = next.canChoosePort = true;
    next.isBusy = false;
    return next;
}

}  // namespace qelmo
