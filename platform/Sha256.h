#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace qelmo {

using Sha256Digest = std::array<std::byte, 32>;

/// SHA-256 (FIPS 180-4) of all bytes, in one update. Callable from any thread.
/// Errors: std::runtime_error if the digest library reports a failure.
[[nodiscard]] Sha256Digest sha256(std::span<const std::byte> bytes);

}  // namespace qelmo
