#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "release/FlashManifest.h"

namespace qelmo {

/// The manifest's file name in a bundle's resource folder.
inline constexpr const char* manifestFileName = "qelmo-varnox-flash-manifest.json";

/// Far larger than any manifest. It only limits the time and memory that a wrong file can take.
inline constexpr std::uint64_t manifestLimitBytes = 2ULL << 20;

// The manifest values that a release for the Cardputer ADV must have.
inline constexpr std::int64_t supportedSchemaVersion = 1;
inline constexpr const char* supportedChipFamily = "ESP32-S3";
inline constexpr std::int64_t wholeFlashAddress = 0;
inline constexpr const char* supportedFlashSize = "8MB";
inline constexpr const char* supportedFlashMode = "dio";

/// A verified release: it passed every check when it was loaded. Only `load` creates one. Immutable; can be
/// copied. Paths are bytes.
class FlasherResources {
public:
    /// Reads and checks the release inside the bundle folder `bundleURL` (the one that contains "Contents"),
    /// and finds the flashing tool below `homeFolder`. Nothing is kept between calls. A file that changes
    /// while it is read is refused.
    ///
    /// Threads: callable from any thread.
    /// Errors:  the first fault in the order of the checks: FlasherFailure with the sentence for the user,
    ///          std::system_error of the file layer, ManifestDecodingError.
    [[nodiscard]] static FlasherResources load(const std::string& bundleURL, const std::string& homeFolder);

    const FlashManifest manifest;
    const std::string firmwareURL;  ///< path of the image file
    const std::string esptoolURL;   ///< path of esptool.py
    const std::string checksum;     ///< digest of the image as computed here: 64 lower-case digits

private:
    FlasherResources(FlashManifest checked, std::string firmware, std::string esptool, std::string digest);
};

/// Checks the manifest's values in this order: schema version, chip, address, flash geometry.
/// Errors: FlasherFailure.
void requireSupportedRelease(const FlashManifest& manifest);

/// Checks the image against its manifest in this order: length, shape, digest. Returns the digest.
/// Errors: FlasherFailure.
[[nodiscard]] std::string verifiedImageDigest(std::span<const std::byte> image,
                                              const FlashManifest& manifest);

/// The digest of an image as 64 lower-case hexadecimal digits.
[[nodiscard]] std::string imageDigest(std::span<const std::byte> image);

/// The path of the application's icon file in the bundle, if it exists. The file is not opened.
[[nodiscard]] std::optional<std::string> applicationIconURL(const std::string& bundleURL);

}  // namespace qelmo
