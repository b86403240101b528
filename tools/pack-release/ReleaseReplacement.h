#pragma once

#include <optional>
#include <string>

#include "tools/pack-release/NewRelease.h"

namespace qelmo {

/// Puts `release` into the bundle and returns the manifest that it replaced, if there was one.
///
/// At every moment the bundle holds the old release or the new one, whole, even when this process is killed:
/// the new image gets a name of its own beside the old one, then the manifest changes in one step. The image
/// of the replaced manifest stays until the next replacement, for a validation or a flash that is under way.
/// Only files that pack-release itself has named are ever removed, and an image only if its bytes have the
/// digest in its name.
///
/// Errors: FlasherFailure when `bundle` is not a bundle, when another pack-release works on it, or when the
///         new release is in place but something failed after that; std::system_error, with the old release
///         in place and no new file.
[[nodiscard]] std::optional<FlashManifest> replaceRelease(const std::string& bundle,
                                                          const NewRelease& release);

}  // namespace qelmo
