#include "release/ReleaseTexts.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace qelmo {

namespace {

std::string verdictLine(const FlasherResources& release, bool userInitiated,
                        const PreviousRelease& previous) {
    if (!userInitiated || !previous.checksum) return "Embedded full image verified.";
    const std::string& version = release.manifest.version;
    if (previous.checksum == release.checksum && previous.version == version)
        return "Build already current: " + version + ".";
    return "NEW BUILD LOADED: " + previous.version.value_or("previous") + " → " + version + ".";
}

/// White space and line breaks: Unicode's General Category Z, U+0009 to U+000D, and U+0085.
constexpr std::array<std::string_view, 25> whiteSpace{
    "\t",     "\n",     "\v",     "\f",     "\r",     " ",      "\u0085", "\u00A0", "\u1680",
    "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008",
    "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"};

std::string_view withoutWhiteSpaceAtBothEnds(std::string_view text) {
    // Comparing whole UTF-8 sequences is safe from either end: no sequence ends inside another.
    for (auto space = whiteSpace.begin(); space != whiteSpace.end();) {
        if (text.starts_with(*space)) {
            text.remove_prefix(space->size());
        } else if (text.ends_with(*space)) {
            text.remove_suffix(space->size());
        } else {
            ++space;
            continue;
        }
        space = whiteSpace.begin();
    }
    return text;
}

}  // namespace

std::string releaseSummary(const FlasherResources& release) {
    constexpr std::size_t shortDigestLength = 16;
    const FlashManifest& manifest = release.manifest;
    return manifest.name + "  //  " + manifest.version + "\n" + std::to_string(manifest.binary.size) +
           " bytes  •  SHA-256 " + release.checksum.substr(0, shortDigestLength) +
           "…  •  ESP32-S3 / 8 MB / DIO / 80 MHz";
}

std::vector<std::string> validationReport(const FlasherResources& release, bool userInitiated,
                                          const PreviousRelease& previous) {
    return {verdictLine(release, userInitiated, previous), "SHA-256  " + release.checksum, "Address   0x0",
            "SD card   not accessed by this application"};
}

std::string verifiedFlashButtonTitle(const FlashManifest& manifest) {
    std::string_view words = withoutWhiteSpaceAtBothEnds(manifest.flash.confirmationText);
    if (words == "FLASH") return "FLASH VERIFIED";
    constexpr std::string_view action = "FLASH ";
    if (words.starts_with(action)) words.remove_prefix(action.size());
    return "FLASH VERIFIED " + std::string(words);
}

}  // namespace qelmo
