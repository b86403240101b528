#include "tools/pack-release/NewRelease.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "release/FlasherFailure.h"
#include "release/FlasherResources.h"
#include "tools/pack-release/BootableImage.h"
#include "tools/pack-release/ImageHeader.h"

namespace qelmo {

namespace {

constexpr std::string_view imageNameStart = "firmware-";
constexpr std::string_view imageNameEnd = ".bin";
constexpr std::size_t imageNameDigits = 16;

FileBytes readImage(const std::string& path) {
    RegularFile file(path);
    if (file.sizeBytes() > deviceFlashBytes)
        throw FlasherFailure("The image has " + std::to_string(file.sizeBytes()) +
                             " bytes, but the device's flash holds " + std::to_string(deviceFlashBytes) +
                             ".");
    return file.readAll(deviceFlashBytes);
}

std::string composedManifest(const PackRequest& request, std::span<const std::byte> image) {
    using Key = FlashManifest::CodingKeys;
    using BinaryKey = FlashManifest::Binary::CodingKeys;
    using FlashKey = FlashManifest::Flash::CodingKeys;
    const auto key = [](Key one) { return std::string(keyText<FlashManifest>(one)); };
    const auto binaryKey = [](BinaryKey one) { return std::string(keyText<FlashManifest::Binary>(one)); };
    const auto flashKey = [](FlashKey one) { return std::string(keyText<FlashManifest::Flash>(one)); };
    const std::string digest = imageDigest(image);

    const nlohmann::ordered_json binary{{binaryKey(BinaryKey::path), packedImageName(digest)},
                                        {binaryKey(BinaryKey::offset), wholeFlashAddress},
                                        {binaryKey(BinaryKey::size), image.size()},
                                        {binaryKey(BinaryKey::sha256), digest}};
    const nlohmann::ordered_json flash{{flashKey(FlashKey::baud), request.baud},
                                       {flashKey(FlashKey::flashSize), supportedFlashSize},
                                       {flashKey(FlashKey::flashMode), supportedFlashMode},
                                       {flashKey(FlashKey::flashFrequency), request.frequency},
                                       {flashKey(FlashKey::eraseAllInternalFlash), request.erase},
                                       {flashKey(FlashKey::after), request.after},
                                       {flashKey(FlashKey::confirmationText), request.confirmation}};
    const nlohmann::ordered_json document{{key(Key::schemaVersion), supportedSchemaVersion},
                                          {key(Key::name), request.name},
                                          {key(Key::version), request.version},
                                          {key(Key::chipFamily), supportedChipFamily},
                                          {key(Key::hardware), request.hardware},
                                          {key(Key::binary), binary},
                                          {key(Key::flash), flash}};
    return document.dump(2) + "\n";
}

}  // namespace

NewRelease newRelease(const PackRequest& request) {
    FileBytes image = readImage(request.image);
    std::string text = composedManifest(request, image.span());

    // Check the text, not the request: the application will read the text.
    FlashManifest manifest = FlashManifest::decode(std::as_bytes(std::span(text)));
    requireSupportedRelease(manifest);
    (void)verifiedImageDigest(image.span(), manifest);
    std::vector<std::string> warnings = requireBootableImage(image.span());
    if (!request.acceptHeaderRewrite) requireUnchangedHeader(image.span(), manifest);
    if (manifest.flash.flashFrequency != "80m")
        warnings.push_back("The window shows 80 MHz for every release, but this one is flashed at " +
                           manifest.flash.flashFrequency + ".");
    return {std::move(image), std::move(text), std::move(manifest), std::move(warnings)};
}

std::string packedImageName(std::string_view digest) {
    std::string name(imageNameStart);
    name += digest.substr(0, imageNameDigits);
    name += imageNameEnd;
    return name;
}

bool isPackedImageName(std::string_view name) {
    if (name.size() != imageNameStart.size() + imageNameDigits + imageNameEnd.size()) return false;
    const std::string_view digits = name.substr(imageNameStart.size(), imageNameDigits);
    return name.starts_with(imageNameStart) && name.ends_with(imageNameEnd) &&
           digits.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

}  // namespace qelmo
