#include "tools/pack-release/ImageHeader.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "release/FlasherFailure.h"

namespace qelmo {

namespace {

constexpr std::size_t modeAt = 2;
constexpr std::size_t sizeAndFrequencyAt = 3;

// The codes of the ESP32-S3's image header. A release can have only this mode and this size.
constexpr std::uint8_t modeDio = 0x02;
constexpr std::uint8_t size8MB = 0x30;

struct FrequencyCode {
    std::string_view frequency;
    std::uint8_t code;
};
constexpr std::array<FrequencyCode, 4> frequencyCodes{
    {{"80m", 0xF}, {"40m", 0x0}, {"26m", 0x1}, {"20m", 0x2}}};

std::optional<std::uint8_t> frequencyCode(std::string_view frequency) {
    for (const FrequencyCode& entry : frequencyCodes) {
        if (entry.frequency == frequency) return entry.code;
    }
    return std::nullopt;
}

std::string twoBytes(std::uint8_t first, std::uint8_t second) {
    std::array<char, sizeof "00 00"> text{};
    (void)std::snprintf(text.data(), text.size(), "%02X %02X", first, second);
    return text.data();
}

}  // namespace

std::vector<std::string> flashFrequencies() {
    std::vector<std::string> names(frequencyCodes.size());
    std::transform(frequencyCodes.begin(), frequencyCodes.end(), names.begin(),
                   [](const FrequencyCode& entry) { return std::string(entry.frequency); });
    return names;
}

void requireUnchangedHeader(std::span<const std::byte> image, const FlashManifest& manifest) {
    const FlashManifest::Flash& flash = manifest.flash;
    const auto frequency = frequencyCode(flash.flashFrequency);
    if (!frequency) throw FlasherFailure("The flash frequency is unknown.");

    const auto written = twoBytes(modeDio, static_cast<std::uint8_t>(size8MB | *frequency));
    const auto present = twoBytes(std::to_integer<std::uint8_t>(image[modeAt]),
                                  std::to_integer<std::uint8_t>(image[sizeAndFrequencyAt]));
    if (present != written)
        throw FlasherFailure("The image's header bytes 2 and 3 are " + present +
                             ", but the flashing tool would rewrite them to " + written + " (" +
                             flash.flashMode + ", " + flash.flashSize + ", " + flash.flashFrequency +
                             "), and the device would not hold the bytes that were verified; build the image "
                             "for these settings or give --accept-header-rewrite.");
}

}  // namespace qelmo
