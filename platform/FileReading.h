#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"

namespace qelmo {

/// True if `path` exists and the current user may read it.
[[nodiscard]] bool isReadable(const std::string& path);

/// The names of all entries of a folder, including hidden ones, without "." and "..", in no particular order.
/// Errors: std::system_error naming the folder.
[[nodiscard]] std::vector<std::string> namesInFolder(const std::string& path);

/// A file's bytes, in one block of memory.
struct FileBytes {
    std::unique_ptr<std::byte[]> start;
    std::size_t sizeBytes;

    [[nodiscard]] std::span<std::byte> span() const { return {start.get(), sizeBytes}; }
};

/// One regular file, opened once for reading. Anything else (folder, FIFO, device) is refused before it is
/// opened, because opening it could block or affect a device.
class RegularFile {
public:
    /// Errors: std::system_error naming the file.
    explicit RegularFile(std::string path);

    /// Length at the time of opening.
    [[nodiscard]] std::uint64_t sizeBytes() const { return sizeBytes_; }

    /// Reads the whole file; call it once. Returns fewer bytes if the file became shorter after opening.
    /// Errors: std::system_error naming the file: read errors, EFBIG above `limitBytes`, ENOMEM, and EAGAIN
    ///         if the file has grown.
    [[nodiscard]] FileBytes readAll(std::uint64_t limitBytes);

private:
    std::string path_;
    FileDescriptor descriptor_;
    std::uint64_t sizeBytes_ = 0;
};

}  // namespace qelmo
