#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "platform/FileDescriptor.h"

namespace qelmo {

/// The bytes of a file, mapped without a copy while nobody can take them away.
///
/// A file that is cut off while it is mapped ends its reader with SIGBUS. On Linux a lease prevents that:
/// until it is given back, whoever opens the file for writing or cuts it off waits (for at most the system's
/// lease-break-time, 45 s unless set otherwise; a digest takes milliseconds).
class LeasedMapping {
public:
    /// Null when the bytes must be copied instead: another system, a file of another user, one that is open
    /// for writing, a file system without leases, or a length other than `sizeBytes`. `file` stays the
    /// caller's and may be closed.
    [[nodiscard]] static std::unique_ptr<LeasedMapping> create(int file, std::size_t sizeBytes);
    LeasedMapping(const LeasedMapping&) = delete;
    LeasedMapping& operator=(const LeasedMapping&) = delete;
    ~LeasedMapping();

    [[nodiscard]] std::span<const std::byte> span() const { return bytes_; }

private:
    LeasedMapping(FileDescriptor lease, std::span<const std::byte> bytes);

    FileDescriptor lease_;
    std::span<const std::byte> bytes_;
};

}  // namespace qelmo
