#include "flashing/FlashTexts.h"

namespace qelmo {

std::string FlashTexts::confirmationMessage(const std::string& version) {
    return "Erase internal flash and install " + version + "?";
}

std::string FlashTexts::confirmationDetails(const std::string& port) {
    return "Device: " + port +
           "\n\nThis erases the Cardputer ADV internal 8 MB flash, writes the complete verified image at "
           "0x0, "
           "verifies it, and resets the device. The SD card is not mounted or accessed.";
}

std::string FlashTexts::startLine(const std::string& port) {
    return "\nStarting verified full-image flash on " + port + "…";
}

std::string FlashTexts::portInUse(const std::string& port) {
    return "An earlier flash job is still running on " + port +
           "; it ends by itself, and then the port is free again.";
}

std::string FlashTexts::successDetails(const std::string& version) {
    return version +
           " was written and verified. If the Cardputer remains in boot mode, power-cycle it normally "
           "without "
           "holding G0.";
}

}  // namespace qelmo
