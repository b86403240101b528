#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace qelmo {

using Sha256Digest = std::array<std::byte, 32>;

/// SHA-256 (FIPS 180-4) of all bytes, in one update. Callable from any thread.
/// Errors: std::runtime_error when the digest library refuses to work.
[[nodiscard]] Sha256Digest sha256(std::span<const std::byte> bytes);

}  // namespace qelmo
