#pragma once

#include <string>

#include "release/FlashManifest.h"

namespace qelmo {

/// The flash button's title: "FLASH VERIFIED", followed by the words of the manifest's `confirmationText`
/// without white space at their ends and without a leading "FLASH ". Nothing is case-folded.
[[nodiscard]] std::string verifiedFlashButtonTitle(const FlashManifest& manifest);

}  // namespace qelmo
