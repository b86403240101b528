// A manifest file of any bytes gives a manifest or a message, and every manifest gets its verdict and its
// button.

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>

#include "release/FlashButtonTitle.h"
#include "release/FlasherFailure.h"
#include "release/FlasherResources.h"
#include "tests/fuzz/targets/Property.h"

namespace {

using namespace qelmo;

template <typename Key>
std::string text(Key key) {
    return std::string(keyText(key));
}

/// Writes every field; throws for text that is not UTF-8.
std::string written(const FlashManifest& manifest) {
    using Key = FlashManifest::CodingKeys;
    using Binary = FlashManifest::Binary::CodingKeys;
    using Flash = FlashManifest::Flash::CodingKeys;
    const nlohmann::json binary{{text(Binary::path), manifest.binary.path},
                                {text(Binary::offset), manifest.binary.offset},
                                {text(Binary::size), manifest.binary.size},
                                {text(Binary::sha256), manifest.binary.sha256}};
    const nlohmann::json flash{{text(Flash::baud), manifest.flash.baud},
                               {text(Flash::flashSize), manifest.flash.flashSize},
                               {text(Flash::flashMode), manifest.flash.flashMode},
                               {text(Flash::flashFrequency), manifest.flash.flashFrequency},
                               {text(Flash::eraseAllInternalFlash), manifest.flash.eraseAllInternalFlash},
                               {text(Flash::after), manifest.flash.after},
                               {text(Flash::confirmationText), manifest.flash.confirmationText}};
    return nlohmann::json{{text(Key::schemaVersion), manifest.schemaVersion},
                          {text(Key::name), manifest.name},
                          {text(Key::version), manifest.version},
                          {text(Key::chipFamily), manifest.chipFamily},
                          {text(Key::hardware), manifest.hardware},
                          {text(Key::binary), binary},
                          {text(Key::flash), flash}}
        .dump();
}

std::optional<FlashManifest> decodedOrRefused(std::span<const std::byte> bytes) {
    try {
        return FlashManifest::decode(bytes);
    } catch (const ManifestDecodingError& error) {
        requireMessage(error.what());
        return std::nullopt;
    }
}

void requireVerdict(const FlashManifest& manifest) {
    try {
        requireSupportedRelease(manifest);
    } catch (const FlasherFailure& error) {
        requireMessage(error.message);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto manifest = decodedOrRefused(std::as_bytes(std::span(data, size)));
    if (!manifest) return 0;

    const std::string once = written(*manifest);
    const std::string again = written(FlashManifest::decode(std::as_bytes(std::span(once))));
    require(again == once, "a manifest that is written decodes the same again", again);

    requireVerdict(*manifest);

    const std::string title = verifiedFlashButtonTitle(*manifest);
    require(title.starts_with("FLASH VERIFIED"), "the button says FLASH VERIFIED", title);
    require(decodedUtf8(title) == title, "the button's title is UTF-8", title);
    return 0;
}
