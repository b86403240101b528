#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "release/FlashManifest.h"

namespace qelmo {

/// True for the flash clocks that the flashing tool knows for the ESP32-S3.
[[nodiscard]] bool isFlashFrequency(std::string_view frequency);

/// Refuses an image whose header the flashing tool would rewrite: bytes 2 and 3 name the flash mode, size and
/// clock, and where they differ from the tool's options, it writes its own. The device would then not hold
/// the bytes that were verified. `image` is a complete image, the manifest a supported one. Errors:
/// FlasherFailure.
void requireUnchangedHeader(std::span<const std::byte> image, const FlashManifest& manifest);

}  // namespace qelmo
