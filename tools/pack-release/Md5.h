#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace qelmo {

using Md5Digest = std::array<std::byte, 16>;

/// MD5 (RFC 1321) of all bytes, as a partition table carries it. It detects accidental damage only.
/// Errors: std::runtime_error if the digest library reports a failure.
[[nodiscard]] Md5Digest md5(std::span<const std::byte> bytes);

}  // namespace qelmo
