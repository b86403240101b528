#pragma once

#include <string>

namespace qelmo::FlashTexts {

// The confirmation before anything is erased.
[[nodiscard]] inline std::string confirmationMessage(const std::string& version) {
    return "Erase internal flash and install " + version + "?";
}
[[nodiscard]] inline std::string confirmationDetails(const std::string& port) {
    return "Device: " + port +
           "\n\nThis erases the Cardputer ADV internal 8 MB flash, writes the complete verified image at "
           "0x0, verifies it, and resets the device. The SD card is not mounted or accessed.";
}
inline constexpr const char* confirmButton = "ERASE + FLASH";
inline constexpr const char* cancelButton = "Cancel";
inline constexpr const char* cancelledLine = "Flash cancelled. Nothing was written.";
inline constexpr const char* releaseChanged = "The embedded release changed after validation.";

// While the tool runs.
[[nodiscard]] inline std::string startLine(const std::string& port) {
    return "\nStarting verified full-image flash on " + port + "…";
}

// How the job ended, or why it did not start.
[[nodiscard]] inline std::string portInUse(const std::string& port) {
    return "An earlier flash job is still running on " + port + ". Wait until it ends, then flash again.";
}
inline constexpr const char* failedLine =
    "\nFLASH FAILED — keep USB connected, return to G0 boot mode, and retry.";
inline constexpr const char* completeLine =
    "\nFLASH COMPLETE — verified and reset. SD card was not accessed.";
inline constexpr const char* successMessage = "QELMO Varnox is installed";
[[nodiscard]] inline std::string successDetails(const std::string& version) {
    return version +
           " was written and verified. If the Cardputer remains in boot mode, power-cycle it normally "
           "without holding G0.";
}
inline constexpr const char* successButton = "Done";

}  // namespace qelmo::FlashTexts
