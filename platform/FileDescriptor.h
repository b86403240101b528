#pragma once

#include <cstddef>
#include <span>
#include <utility>

namespace qelmo {

/// Owns one open descriptor and closes it. Movable, not copyable; a negative number means "none".
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { close(); }

    [[nodiscard]] int get() const noexcept { return descriptor_; }
    [[nodiscard]] bool isOpen() const noexcept { return descriptor_ >= 0; }
    void close() noexcept;

private:
    int descriptor_ = -1;
};

/// Writes all of `bytes`, however often a signal interrupts it. Returns 0, or the errno value of the write
/// that failed.
[[nodiscard]] int writeAll(int descriptor, std::span<const std::byte> bytes) noexcept;

}  // namespace qelmo
