#include "release/FlasherResources.h"

#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/FilePath.h"
#include "platform/FileReading.h"
#include "platform/Sha256.h"
#include "release/FlasherFailure.h"

namespace qelmo {

namespace fs = std::filesystem;

namespace {

/// A merged image holds the boot loader at 0 and the application here; both begin with the image magic.
constexpr std::size_t applicationOffset = 0x10000;
constexpr std::byte imageMagic{0xE9};

/// Far larger than any image. It only limits the time and memory that a wrong file can take.
constexpr std::uint64_t imageLimitBytes = 256ULL << 20;

constexpr std::string_view esptoolBelowHome = ".platformio/packages/tool-esptoolpy/esptool.py";

std::string lowerCaseAscii(std::string text) {
    for (char& unit : text) {
        if (unit >= 'A' && unit <= 'Z') unit = static_cast<char>(unit - 'A' + 'a');
    }
    return text;
}

void requireImageLength(std::uint64_t sizeBytes, const FlashManifest& manifest) {
    if (std::cmp_not_equal(sizeBytes, manifest.binary.size))
        throw FlasherFailure("The embedded firmware size does not match its manifest.");
}

}  // namespace

FlasherResources::FlasherResources(FlashManifest checked, std::string firmware, std::string esptool,
                                   std::string digest)
    : manifest(std::move(checked)),
      firmwareURL(std::move(firmware)),
      esptoolURL(std::move(esptool)),
      checksum(std::move(digest)) {}

FlasherResources FlasherResources::load(const std::string& bundleURL, const std::string& homeFolder) {
    const std::string folder = resourceFolder(bundleURL);
    const std::string manifestFile = joinedPath(folder, manifestFileName);
    if (!isReadable(manifestFile)) throw FlasherFailure("The embedded flash manifest is missing.");
    const FlashManifest manifest =
        FlashManifest::decode(RegularFile(manifestFile).readAll(manifestLimitBytes).span());
    requireSupportedRelease(manifest);

    // Checked only after the manifest was read from it: a missing folder is reported as a missing manifest.
    std::error_code ignored;
    if (!fs::is_directory(folder, ignored))
        throw FlasherFailure("The application resource folder is missing.");

    const std::string firmware = joinedPath(folder, manifest.binary.path);
    RegularFile image(firmware);
    // A file of the wrong length is refused without being read.
    requireImageLength(image.sizeBytes(), manifest);
    const std::string digest = verifiedImageDigest(image.readAll(imageLimitBytes).span(), manifest);

    // Last on purpose: a fault of the release itself is reported before a missing tool.
    const std::string esptool = joinedPath(homeFolder, esptoolBelowHome);
    if (!isReadable(esptool))
        throw FlasherFailure("The local Espressif tool is missing. Run BUILD-FULL-MAC.command once.");

    return {manifest, firmware, esptool, digest};
}

void requireSupportedRelease(const FlashManifest& manifest) {
    if (manifest.schemaVersion != supportedSchemaVersion)
        throw FlasherFailure("The embedded flash manifest version is unsupported.");
    if (manifest.chipFamily != supportedChipFamily)
        throw FlasherFailure("This release is not locked to ESP32-S3.");
    if (manifest.binary.offset != wholeFlashAddress)
        throw FlasherFailure("The complete firmware must flash at address 0x0.");
    if (manifest.flash.flashSize != supportedFlashSize || manifest.flash.flashMode != supportedFlashMode)
        throw FlasherFailure("The embedded flash geometry is not Cardputer ADV safe.");
}

std::string verifiedImageDigest(std::span<const std::byte> image, const FlashManifest& manifest) {
    requireImageLength(image.size(), manifest);
    if (image.size() <= applicationOffset || image[0] != imageMagic || image[applicationOffset] != imageMagic)
        throw FlasherFailure("The embedded file is not a complete QELMO firmware image.");
    std::string digest = imageDigest(image);
    if (digest != lowerCaseAscii(manifest.binary.sha256))
        throw FlasherFailure("The embedded firmware checksum is not trusted.");
    return digest;
}

std::string imageDigest(std::span<const std::byte> image) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::byte value : sha256(image)) {
        text += digits[std::to_integer<std::size_t>(value >> 4)];
        text += digits[std::to_integer<std::size_t>(value & std::byte{0xF})];
    }
    return text;
}

std::optional<std::string> applicationIconURL(const std::string& bundleURL) {
    std::string path = joinedPath(resourceFolder(bundleURL), "AppIcon.icns");
    std::error_code ignored;
    if (!fs::exists(path, ignored)) return std::nullopt;
    return path;
}

}  // namespace qelmo
