#include "platform/FileDescriptor.h"

#include <unistd.h>

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

}  // namespace qelmo
