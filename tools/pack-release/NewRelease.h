#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileReading.h"
#include "release/FlashManifest.h"
#include "tools/pack-release/Options.h"

namespace qelmo {

/// The largest possible image.
inline constexpr std::uint64_t deviceFlashBytes = 8ULL << 20;

/// A checked release that has not been written to a bundle yet.
struct NewRelease {
    FileBytes image;
    std::string manifestText;           ///< the manifest file's bytes
    FlashManifest manifest;             ///< decoded from `manifestText`
    std::vector<std::string> warnings;  ///< one sentence each
};

/// Reads the image, composes the manifest, checks both as the application will, and checks that the chip can
/// start the image.
/// Errors: FlasherFailure, with the application's own sentence if it would refuse the release;
///         std::system_error for the image file.
[[nodiscard]] NewRelease newRelease(const PackRequest& request);

/// The file name under which pack-release stores the image with this digest.
[[nodiscard]] std::string packedImageName(std::string_view digest);

/// True for names that `packedImageName` returns.
[[nodiscard]] bool isPackedImageName(std::string_view name);

}  // namespace qelmo
