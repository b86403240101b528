// Arbitrary manifest bytes give a manifest or a message. Every manifest gets a verdict and a button title.

#include <cstddef>
#include <cstdint>
#include <span>

#include "release/FlasherFailure.h"
#include "release/FlasherResources.h"
#include "release/ReleaseTexts.h"
#include "tests/fuzz/targets/Property.h"

namespace {

using namespace qelmo;

void requireVerdict(const FlashManifest& manifest) {
    try {
        requireSupportedRelease(manifest);
    } catch (const FlasherFailure& error) {
        requireMessage(error.message);
    }
}

void requireTexts(const FlashManifest& manifest) {
    for (const std::string& text : {manifest.name, manifest.version, manifest.binary.path})
        require(decodedUtf8(text) == text, "a text of a manifest is UTF-8", text);
    const std::string title = verifiedFlashButtonTitle(manifest);
    require(title.starts_with("FLASH VERIFIED"), "the button says FLASH VERIFIED", title);
    require(decodedUtf8(title) == title, "the button's title is UTF-8", title);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const auto manifest = FlashManifest::decode(std::as_bytes(std::span(data, size)));
        requireVerdict(manifest);
        requireTexts(manifest);
    } catch (const ManifestDecodingError& error) {
        requireMessage(error.what());
    }
    return 0;
}
