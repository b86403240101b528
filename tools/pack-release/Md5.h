#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace qelmo {

using Md5Digest = std::array<std::byte, 16>;

/// MD5 (RFC 1321) of all bytes, against accidents only: it is what a partition table carries.
/// Errors: std::runtime_error when the digest library refuses to work.
[[nodiscard]] Md5Digest md5(std::span<const std::byte> bytes);

}  // namespace qelmo
