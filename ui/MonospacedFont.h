#pragma once

#include <QFont>

namespace qelmo {

/// The platform's monospaced system font. Sizes are device-independent pixels, so that they do not depend on
/// the resolution that a display claims to have.
[[nodiscard]] QFont monospacedFont(int sizePixels, QFont::Weight weight);

}  // namespace qelmo
