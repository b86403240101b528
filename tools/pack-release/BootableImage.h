#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace qelmo {

/// Refuses a merged image that the chip cannot start. Checks the boot loader at 0 and the application at
/// 0x10000 as the chip does: the chip id, the segments, the checksum and, if the header says that there is
/// one, the appended SHA-256. If the partition table at 0x8000 contains an MD5, its entries must match it.
/// `image` must be a complete image, with both magic bytes. Returns one sentence for each thing that is
/// unusual but may be correct.
/// Errors:  FlasherFailure; the sentence names the part, the offset and what to do.
/// Sources: "Firmware Image Format" in esptool's documentation, "Partition Tables" in that of ESP-IDF.
[[nodiscard]] std::vector<std::string> requireBootableImage(std::span<const std::byte> image);

}  // namespace qelmo
