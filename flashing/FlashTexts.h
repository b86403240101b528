#pragma once

#include <string>

namespace qelmo::FlashTexts {

// The confirmation before anything is erased.
[[nodiscard]] std::string confirmationMessage(const std::string& version);
[[nodiscard]] std::string confirmationDetails(const std::string& port);
inline constexpr const char* confirmButton = "ERASE + FLASH";
inline constexpr const char* cancelButton = "Cancel";
inline constexpr const char* cancelledLine = "Flash cancelled. Nothing was written.";
inline constexpr const char* releaseChanged = "The embedded release changed after validation.";

// While the tool runs.
inline constexpr const char* runningStatus = "FLASHING — DO NOT DISCONNECT";
[[nodiscard]] std::string startLine(const std::string& port);

// How it ended.
inline constexpr const char* launchFailedStatus = "FLASHER COULD NOT START";
[[nodiscard]] std::string portInUse(const std::string& port);
inline constexpr const char* failedStatus = "FLASH FAILED";
inline constexpr const char* failedLine =
    "\nFLASH FAILED — keep USB connected, return to G0 boot mode, and retry.";
inline constexpr const char* completeStatus = "FLASH COMPLETE";
inline constexpr const char* completeLine =
    "\nFLASH COMPLETE — verified and reset. SD card was not accessed.";
inline constexpr const char* successMessage = "QELMO Varnox is installed";
[[nodiscard]] std::string successDetails(const std::string& version);
inline constexpr const char* successButton = "Done";

}  // namespace qelmo::FlashTexts
