#pragma once

#include <optional>
#include <string>
#include <vector>

#include "release/FlasherResources.h"

namespace qelmo {

/// The previously loaded release, if there was one.
struct PreviousRelease {
    std::optional<std::string> version;
    std::optional<std::string> checksum;
};

/// The two lines of the release panel, which say which release is loaded.
[[nodiscard]] std::string releaseSummary(const FlasherResources& release);

/// The lines that a successful validation writes to the log.
[[nodiscard]] std::vector<std::string> validationReport(const FlasherResources& release, bool userInitiated,
                                                        const PreviousRelease& previous);

/// The flash button's title: "FLASH VERIFIED", followed by the manifest's `confirmationText`. White space at
/// both ends of the text is removed first, then a leading "FLASH ", but only if it is in upper case. The text
/// "FLASH" alone adds nothing.
[[nodiscard]] std::string verifiedFlashButtonTitle(const FlashManifest& manifest);

}  // namespace qelmo
