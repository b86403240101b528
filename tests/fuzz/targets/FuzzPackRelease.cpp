// Any command line with any image is packed as it was asked for, or refused with a message.
//
// Input: the sizes of the boot loader, the partition table and the application (one byte each), their bytes,
// then the arguments with a NUL between them.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "release/FlasherFailure.h"
#include "tests/fuzz/targets/Property.h"
#include "tools/pack-release/BootableImage.h"
#include "tools/pack-release/NewRelease.h"
#include "tools/pack-release/Options.h"

namespace {

using namespace qelmo;

struct Input {
    std::vector<std::byte> image;
    std::vector<std::string> arguments;
};

std::vector<std::byte> mergedImage(std::span<const std::byte> loader, std::span<const std::byte> table,
                                   std::span<const std::byte> application) {
    constexpr std::size_t tableAt = 0x8000;
    constexpr std::size_t applicationAt = 0x10000;
    std::vector<std::byte> image(applicationAt, std::byte{0xFF});
    std::copy(loader.begin(), loader.end(), image.begin());
    std::copy(table.begin(), table.end(), image.begin() + tableAt);
    image.insert(image.end(), application.begin(), application.end());
    return image;
}

Input inputOf(std::span<const std::byte> data) {
    const auto taken = [&data](std::size_t size) {
        const auto part = data.first(std::min(size, data.size()));
        data = data.subspan(part.size());
        return part;
    };
    const auto sizes = taken(3);
    const auto part = [&](std::size_t index) {
        return taken(index < sizes.size() ? std::to_integer<std::size_t>(sizes[index]) : 0);
    };
    const auto loader = part(0);
    const auto table = part(1);
    Input input{mergedImage(loader, table, part(2)), {}};
    const std::string line(reinterpret_cast<const char*>(data.data()), data.size());
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

    void write(std::span<const std::byte> image) const {
        require(::ftruncate(descriptor_, 0) == 0 &&
                    std::cmp_equal(::pwrite(descriptor_, image.data(), image.size(), 0), image.size()),
                "the image can be written", path());
    }

private:
    int descriptor_;
};

std::optional<PackRequest> readOrRefused(const std::vector<std::string>& arguments) {
    try {
        return packRequest(arguments);
    } catch (const OptionError& error) {
        require(*error.what() != '\0', "a message is not empty", "");
        return std::nullopt;
    }
}

/// In memory that ends where the image ends: reading past it is seen.
bool isBootable(const std::vector<std::byte>& image) {
    try {
        for (const std::string& warning : requireBootableImage(image)) requireMessage(warning);
        return true;
    } catch (const FlasherFailure& error) {
        requireMessage(error.message);
        return false;
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
    const Input input = inputOf(std::as_bytes(std::span(data, size)));
    std::optional<PackRequest> request = readOrRefused(input.arguments);
    const bool bootable = isBootable(input.image);
    if (!request) return 0;

    imageFile.write(input.image);
    request->image = imageFile.path();
    try {
        const NewRelease release = newRelease(*request);
        require(bootable, "a packed image is one that can start", request->name);
        requireAsked(release.manifest, *request);
    } catch (const FlasherFailure& error) {
        requireMessage(error.message);
    }
    return 0;
}
