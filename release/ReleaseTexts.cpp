#include "release/ReleaseTexts.h"

namespace qelmo {

namespace {

constexpr std::size_t shortDigestLength = 16;

std::string verdictLine(const FlasherResources& release, bool userInitiated,
                        const PreviousRelease& previous) {
    if (!userInitiated || !previous.checksum) return "Embedded full image verified.";
    const std::string& version = release.manifest.version;
    if (previous.checksum == release.checksum && previous.version == version)
        return "Build already current: " + version + ".";
    return "NEW BUILD LOADED: " + previous.version.value_or("previous") + " → " + version + ".";
}

}  // namespace

std::string releaseSummary(const FlasherResources& release) {
    const FlashManifest& manifest = release.manifest;
    return manifest.name + "  //  " + manifest.version + "\n" + std::to_string(manifest.binary.size) +
           " bytes  •  SHA-256 " + release.checksum.substr(0, shortDigestLength) +
           "…  •  ESP32-S3 / 8 MB / DIO / 80 MHz";
}

std::string releaseFailureSummary(const std::string& description) {
    return "RELEASE VALIDATION FAILED\n" + description;
}

std::vector<std::string> validationReport(const FlasherResources& release, bool userInitiated,
                                          const PreviousRelease& previous) {
    return {verdictLine(release, userInitiated, previous), "SHA-256  " + release.checksum, "Address   0x0",
            "SD card   not accessed by this application"};
}

}  // namespace qelmo
