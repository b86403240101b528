#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/PopulatedBuffer.h"

namespace qelmo {

/// True when something exists at `path` that the current user may read.
[[nodiscard]] bool isReadableFile(const std::string& path);

/// True when `path` exists and is a folder.
[[nodiscard]] bool isFolder(const std::string& path);

/// True when something exists at `path`.
[[nodiscard]] bool exists(const std::string& path);

/// The entry names of one folder, hidden ones included, without "." and "..", in no particular order.
/// Errors: std::system_error naming the folder.
[[nodiscard]] std::vector<std::string> namesInFolder(const std::string& path);

/// The bytes of one file in one buffer.
class FileBytes {
public:
    FileBytes(PopulatedBuffer buffer, std::size_t sizeBytes)
        : buffer_(std::move(buffer)), sizeBytes_(sizeBytes) {}

    [[nodiscard]] std::span<const std::byte> span() const { return buffer_.span().first(sizeBytes_); }

private:
    PopulatedBuffer buffer_;
    std::size_t sizeBytes_;
};

/// One regular file, opened once for reading.
///
/// Anything else (folder, FIFO, device) is refused before it is opened, so that nothing waits and no device
/// notices. The bytes are read, never mapped: a file that shrinks while it is mapped kills its reader.
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
