#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "release/CodingKey.h"

namespace qelmo {

/// The decoder's error: one line that names the key with its path, or the place where the JSON text is wrong.
class ManifestDecodingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The decoded flash manifest: says what the image is, where it goes and how the flash chip is driven.
///
/// Plain values, immutable once decoded. Every field is required. Nothing is judged here beyond its JSON
/// type.
struct FlashManifest {
    /// The image file and where it goes.
    struct Binary {
        enum class CodingKeys { path, offset, size, sha256 };

        const std::string path;     ///< file name, relative to the resource folder
        const std::int64_t offset;  ///< flash address, in bytes
        const std::int64_t size;    ///< length of the image file, in bytes
        const std::string sha256;   ///< digest of the image file, 64 hexadecimal digits of either case
    };

    /// How the flash chip is written. Sizes, modes and clocks are in the flashing tool's notation.
    struct Flash {
        enum class CodingKeys {
            baud,
            flashSize,
            flashMode,
            flashFrequency,
            eraseAllInternalFlash,
            after,
            confirmationText
        };

        const std::int64_t baud;
        const std::string flashSize;
        const std::string flashMode;
        const std::string flashFrequency;
        const bool eraseAllInternalFlash;
        const std::string after;             ///< what the tool does with the chip after writing
        const std::string confirmationText;  ///< the words of the flash action
    };

    enum class CodingKeys { schemaVersion, name, version, chipFamily, hardware, binary, flash };

    const std::int64_t schemaVersion;
    const std::string name;
    const std::string version;
    const std::string chipFamily;
    const std::string hardware;
    const Binary binary;
    const Flash flash;

    /// Decodes the bytes of a manifest file. Keys that are not known are ignored at every level; of a key
    /// that is written twice the last one counts. Errors: ManifestDecodingError for the first bad field in
    /// the order above.
    [[nodiscard]] static FlashManifest decode(std::span<const std::byte> bytes);
};

template <>
inline constexpr std::array codingKeyTexts<FlashManifest::CodingKeys>{
    std::string_view("schemaVersion"), std::string_view("name"),     std::string_view("version"),
    std::string_view("chipFamily"),    std::string_view("hardware"), std::string_view("binary"),
    std::string_view("flash")};

template <>
inline constexpr std::array codingKeyTexts<FlashManifest::Binary::CodingKeys>{
    std::string_view("path"), std::string_view("offset"), std::string_view("size"),
    std::string_view("sha256")};

template <>
inline constexpr std::array codingKeyTexts<FlashManifest::Flash::CodingKeys>{
    std::string_view("baud"),
    std::string_view("flashSize"),
    std::string_view("flashMode"),
    std::string_view("flashFrequency"),
    std::string_view("eraseAllInternalFlash"),
    std::string_view("after"),
    std::string_view("confirmationText")};

}  // namespace qelmo
