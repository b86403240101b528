#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"

namespace qelmo {

/// True when something exists at `path` that the current user may read.
[[nodiscard]] bool isReadable(const std::string& path);

/// The entry names of one folder, hidden ones included, without "." and "..", in no particular order.
/// Errors: std::system_error naming the folder.
[[nodiscard]] std::vector<std::string> namesInFolder(const std::string& path);

/// A file's bytes, in one block of memory.
struct FileBytes {
    std::unique_ptr<std::byte[]> start;
    std::size_t sizeBytes;

    [[nodiscard]] std::span<std::byte> span() const { return {start.get(), sizeBytes}; }
};

/// One regular file, opened once for reading. Anything else (folder, FIFO, device) is refused before it is
/// opened, so that nothing waits and no device notices.
class RegularFile {
public:
    /// Errors: std::system_error naming the file.
    explicit RegularFile(std::string path);

    /// Length at the time of opening.
    [[nodiscard]] std::uint64_t sizeBytes() const { return sizeBytes_; }

    /// Reads the whole file. Call it once. A file that became shorter meanwhile gives fewer bytes.
    /// Errors: std::system_error naming the file: read errors, EFBIG above `limitBytes`, ENOMEM, and EAGAIN
    ///         when the file grew meanwhile.
    [[nodiscard]] FileBytes readAll(std::uint64_t limitBytes);

private:
    std::string path_;
    FileDescriptor descriptor_;
    std::uint64_t sizeBytes_ = 0;
};

}  // namespace qelmo
