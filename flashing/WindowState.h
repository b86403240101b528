#pragma once

#include <cstddef>
#include <string>

#include "release/FlasherResources.h"

namespace qelmo {

/// What the window shows and allows, except for the log and the items of the port menu. The defaults are
/// those of a new window. Each function returns the state after one event.
struct WindowState {
    enum class Colour { accent, warning, danger };

    std::string release = "Validating embedded release…";
    std::string status = "STARTING";
    Colour statusColour = Colour::warning;
    std::string flashTitle = "VALIDATING RELEASE";
    bool canFlash = false;
    bool canRefresh = true;
    bool canChoosePort = true;
    bool isBusy = false;

    bool operator==(const WindowState&) const = default;

    /// The release was loaded; the ports are listed next.
    [[nodiscard]] WindowState withRelease(const FlasherResources& loaded) const;
    /// The release was refused; `description` is the failure's text.
    [[nodiscard]] WindowState withRefusedRelease(const std::string& description) const;
    [[nodiscard]] WindowState withPorts(std::size_t portCount, bool hasRelease) const;
    [[nodiscard]] WindowState flashing() const;
    [[nodiscard]] WindowState launchFailed() const;
    [[nodiscard]] WindowState flashed(bool succeeded) const;

private:
    [[nodiscard]] WindowState withStatus(std::string text, Colour colour) const;
    [[nodiscard]] WindowState idle() const;
};

}  // namespace qelmo
