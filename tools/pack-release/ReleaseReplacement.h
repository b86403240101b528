#pragma once

#include <optional>
#include <string>

#include "tools/pack-release/NewRelease.h"

namespace qelmo {

/// Puts `release` into the bundle and returns the manifest that it replaced, if there was one.
///
/// At every moment the bundle holds the whole old release or the whole new one, even if this process is
/// killed: the new image gets its own name next to the old one, then the manifest changes in one step. The
/// image of the replaced manifest stays until the next replacement, because a validation or a flash job in
/// progress may still use it. Only files that pack-release named itself are removed, and an image only if its
/// digest matches its name.
///
/// Errors: FlasherFailure if `bundle` is not a bundle, if another pack-release is working on it, or if the
///         new release is in place but a later step failed; std::system_error for any other failure: the old
///         release is then still in place, and no new file is left.
[[nodiscard]] std::optional<FlashManifest> replaceRelease(const std::string& bundle,
                                                          const NewRelease& release);

}  // namespace qelmo
