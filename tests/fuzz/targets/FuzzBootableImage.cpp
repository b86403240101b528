// Any merged image can either start, perhaps with warnings, or is refused with a message.
//
// Input: the sizes of boot loader and partition table (one byte each), their bytes, the application's bytes.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "release/FlasherFailure.h"
#include "tests/fuzz/targets/Property.h"
#include "tools/pack-release/BootableImage.h"

namespace {

using Bytes = std::span<const std::uint8_t>;

Bytes taken(Bytes& data, std::size_t size) {
    const Bytes part = data.first(std::min(size, data.size()));
    data = data.subspan(part.size());
    return part;
}

/// In memory that ends where the image ends, so that reading past the end is detected.
std::vector<std::uint8_t> mergedImage(Bytes data) {
    const Bytes sizes = taken(data, 2);
    std::vector<std::uint8_t> image(0x10000, 0xFF);
    if (sizes.size() == 2) {
        const Bytes loader = taken(data, sizes[0]);
        const Bytes table = taken(data, sizes[1]);
        std::copy(loader.begin(), loader.end(), image.begin());
        std::copy(table.begin(), table.end(), image.begin() + 0x8000);
    }
    image.insert(image.end(), data.begin(), data.end());
    image.shrink_to_fit();
    return image;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<std::uint8_t> image = mergedImage({data, size});
    try {
        for (const std::string& warning : qelmo::requireBootableImage(std::as_bytes(std::span(image))))
            qelmo::requireMessage(warning);
    } catch (const qelmo::FlasherFailure& error) {
        qelmo::requireMessage(error.message);
    }
    return 0;
}
