#pragma once

#include <unistd.h>

#include <cerrno>
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
    FileDescriptor& operator=(FileDescriptor other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileDescriptor() { close(); }

    [[nodiscard]] int get() const noexcept { return descriptor_; }
    [[nodiscard]] bool isOpen() const noexcept { return descriptor_ >= 0; }
    void close() noexcept {
        // Not retried on EINTR: close() frees the number whatever it returns.
        if (isOpen()) ::close(std::exchange(descriptor_, -1));
    }

private:
    int descriptor_ = -1;
};

/// Writes all of `bytes` and repeats interrupted writes. Returns 0, or the errno value of a failed write.
[[nodiscard]] inline int writeAll(int descriptor, std::span<const std::byte> bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written >= 0) bytes = bytes.subspan(static_cast<std::size_t>(written));
        if (written < 0 && errno != EINTR) return errno;
    }
    return 0;
}

}  // namespace qelmo
