// Any command line with any image is packed as it was asked for, or refused with a message.
//
// Input: the image's first four bytes, its byte at 0x10000, its length (three bytes, the lowest first), then
// the arguments with a NUL between them.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "release/FlasherFailure.h"
#include "tests/fuzz/targets/Property.h"
#include "tools/pack-release/ImageHeader.h"
#include "tools/pack-release/NewRelease.h"
#include "tools/pack-release/Options.h"

namespace {

using namespace qelmo;

constexpr off_t applicationAt = 0x10000;

struct Input {
    std::array<std::uint8_t, 8> image{};
    std::vector<std::string> arguments;
};

Input inputOf(const std::uint8_t* data, std::size_t size) {
    Input input;
    const std::size_t taken = std::min(size, input.image.size());
    std::copy_n(data, taken, input.image.begin());
    const std::string line(data + taken, data + size);
    for (std::size_t start = 0; start < line.size();) {
        const std::size_t end = std::min(line.find('\0', start), line.size());
        input.arguments.push_back(line.substr(start, end - start));
        start = end + 1;
    }
    return input;
}

/// A file in memory, written anew for every input.
class ImageFile {
public:
    ImageFile() : descriptor_(::memfd_create("image", MFD_CLOEXEC)) {}

    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

    void write(const std::array<std::uint8_t, 8>& image) const {
        const off_t length = lengthOf(image[5] | image[6] << 8 | image[7] << 16);
        const auto headerBytes = static_cast<std::size_t>(std::min<off_t>(length, 4));
        bool done = ::ftruncate(descriptor_, 0) == 0 && ::ftruncate(descriptor_, length) == 0;
        done = done && ::pwrite(descriptor_, image.data(), headerBytes, 0) >= 0;
        if (length > applicationAt) done = done && ::pwrite(descriptor_, &image[4], 1, applicationAt) == 1;
        require(done, "the image can be written", path());
    }

private:
    /// Around the shortest complete image, or above the device's flash; what lies between is only slower.
    static off_t lengthOf(off_t given) {
        constexpr off_t limit = 2 * applicationAt;
        constexpr off_t deviceFlash = 8 << 20;
        return given <= limit ? given : deviceFlash + (given - limit);
    }

    int descriptor_;
};

/// The message is an argument or an option of ours, a colon, and a short fault.
void requireOptionMessage(const std::string& text, const std::vector<std::string>& arguments) {
    const std::size_t colon = std::min(text.rfind(": "), text.size());
    const std::string named = text.substr(0, colon);
    const bool given = std::find(arguments.begin(), arguments.end(), named) != arguments.end();
    require(given || (named.starts_with("--") && packUsage().find(named + " ") != std::string::npos),
            "a message names an option", text);
    requireMessage(text.substr(std::min(colon + 2, text.size())));
}

std::optional<PackRequest> readOrRefused(const std::vector<std::string>& arguments) {
    try {
        return packRequest(arguments);
    } catch (const OptionError& error) {
        requireOptionMessage(error.what(), arguments);
        return std::nullopt;
    }
}

void requireAsked(const FlashManifest& made, const PackRequest& request) {
    require(made.name == request.name && made.version == request.version && made.hardware == request.hardware,
            "the release is the one that was asked for", made.name);
    require(made.flash.baud == request.baud && made.flash.flashFrequency == request.frequency &&
                made.flash.eraseAllInternalFlash == request.erase && made.flash.after == request.after &&
                made.flash.confirmationText == request.confirmation,
            "the flash options are the ones that were asked for", made.flash.confirmationText);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const ImageFile imageFile;
    const Input input = inputOf(data, size);
    std::optional<PackRequest> request = readOrRefused(input.arguments);
    if (!request) return 0;

    imageFile.write(input.image);
    request->image = imageFile.path();
    // The header is judged here instead, in memory that ends where the image ends: reading past it is seen.
    request->acceptHeaderRewrite = true;
    try {
        const NewRelease release = newRelease(*request);
        requireAsked(release.manifest, *request);
        const std::vector<std::byte> image(release.image.span().begin(), release.image.span().end());
        requireUnchangedHeader(image, release.manifest);
    } catch (const FlasherFailure& error) {
        requireMessage(error.message);
    }
    return 0;
}
