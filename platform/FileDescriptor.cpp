#include "platform/FileDescriptor.h"

#include <unistd.h>

#include <cerrno>

namespace qelmo {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
        close();
        descriptor_ = std::exchange(other.descriptor_, -1);
    }
    return *this;
}

void FileDescriptor::close() noexcept {
    // Not retried on EINTR: the number is free again whatever close() answers.
    if (isOpen()) ::close(std::exchange(descriptor_, -1));
}

int writeAll(int descriptor, std::span<const std::byte> bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written >= 0) bytes = bytes.subspan(static_cast<std::size_t>(written));
        if (written < 0 && errno != EINTR) return errno;
    }
    return 0;
}

}  // namespace qelmo
