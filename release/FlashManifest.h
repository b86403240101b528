#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qelmo {

/// The decoder's error: one line that names the key with its path, or says why the text is not a manifest.
class ManifestDecodingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The decoded flash manifest: what the image is, where it goes and how the flash chip is written. Every
/// field is required. Only JSON types are checked here, not values.
struct FlashManifest {
    /// The image file and where it goes.
    struct Binary {
        enum class CodingKeys { path, offset, size, sha256 };
        static constexpr auto keyTexts =
            std::to_array<std::string_view>({"path", "offset", "size", "sha256"});

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
        static constexpr auto keyTexts =
            std::to_array<std::string_view>({"baud", "flashSize", "flashMode", "flashFrequency",
                                             "eraseAllInternalFlash", "after", "confirmationText"});

        const std::int64_t baud;
        const std::string flashSize;
        const std::string flashMode;
        const std::string flashFrequency;
        const bool eraseAllInternalFlash;
        const std::string after;             ///< what the tool does with the chip after writing
        const std::string confirmationText;  ///< the text from which the flash button's title is made
    };

    enum class CodingKeys { schemaVersion, name, version, chipFamily, hardware, binary, flash };
    static constexpr auto keyTexts = std::to_array<std::string_view>(
        {"schemaVersion", "name", "version", "chipFamily", "hardware", "binary", "flash"});

    const std::int64_t schemaVersion;
    const std::string name;
    const std::string version;
    const std::string chipFamily;
    const std::string hardware;
    const Binary binary;
    const Flash flash;

    /// Decodes the bytes of a manifest file. Unknown keys are ignored at every level. If a key occurs twice,
    /// the last one counts. Errors: ManifestDecodingError for the first bad field in the order above.
    [[nodiscard]] static FlashManifest decode(std::span<const std::byte> bytes);
};

/// The key in the JSON text.
template <typename Record>
[[nodiscard]] constexpr std::string_view keyText(typename Record::CodingKeys key) {
    return Record::keyTexts.at(static_cast<std::size_t>(key));
}

/// The key whose text is exactly `text`, or nothing.
template <typename Record>
[[nodiscard]] constexpr std::optional<typename Record::CodingKeys> codingKey(std::string_view text) {
    const auto found = std::find(Record::keyTexts.begin(), Record::keyTexts.end(), text);
    if (found == Record::keyTexts.end()) return std::nullopt;
    return static_cast<typename Record::CodingKeys>(found - Record::keyTexts.begin());
}

}  // namespace qelmo
