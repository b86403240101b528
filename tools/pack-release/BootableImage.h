#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace qelmo {

/// Refuses a merged image that the chip cannot start. Reads the boot loader at 0 and the application at
/// 0x10000 as the chip does: chip id, segments, checksum and, if the header announces it, the appended
/// SHA-256. A partition table at 0x8000 must match the MD5 that it announces. `image` must be a complete
/// image, with both magic bytes. Returns one sentence for each thing that is unusual but may be correct.
/// Errors:  FlasherFailure; the sentence names the part, the offset and what to do.
/// Sources: "Firmware Image Format" in esptool's documentation, "Partition Tables" in that of ESP-IDF.
[[nodiscard]] std::vector<std::string> requireBootableImage(std::span<const std::byte> image);

}  // namespace qelmo
