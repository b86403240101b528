#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "release/FlashManifest.h"

namespace qelmo {

/// The flash clocks that the flashing tool knows for the ESP32-S3, the usual one first.
[[nodiscard]] std::vector<std::string> flashFrequencies();

/// Refuses an image whose header the flashing tool would rewrite. Bytes 2 and 3 name the flash mode, size and
/// clock. If they differ from the tool's options, the tool overwrites them, and the device does not hold the
/// bytes that were verified. `image` must be complete, and `manifest` must be supported.
/// Errors: FlasherFailure.
void requireUnchangedHeader(std::span<const std::byte> image, const FlashManifest& manifest);

}  // namespace qelmo
