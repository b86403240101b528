#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/FileDescriptor.h"

namespace qelmo {

/// True when something exists at `path` that the current user may read.
[[nodiscard]] bool isReadable(const std::string& path);

/// True when `path` exists and is a folder.
[[nodiscard]] bool isFolder(const std::string& path);

/// True when something exists at `path`.
[[nodiscard]] bool exists(const std::string& path);

/// The entry names of one folder, hidden ones included, without "." and "..", in no particular order.
/// Errors: std::system_error naming the folder.
[[nodiscard]] std::vector<std::string> namesInFolder(const std::string& path);

/// The bytes of one file, in one piece. Copies share it.
class FileBytes {
public:
    /// `owner` keeps `bytes` where they are.
    FileBytes(std::shared_ptr<const void> owner, std::span<const std::byte> bytes)
        : owner_(std::move(owner)), bytes_(bytes) {}

    [[nodiscard]] std::span<const std::byte> span() const { return bytes_; }

private:
    std::shared_ptr<const void> owner_;
    std::span<const std::byte> bytes_;
};

/// One regular file, opened once for reading.
///
/// Anything else (folder, FIFO, device) is refused before it is opened, so that nothing waits and no device
/// notices. A large file is mapped where nobody can change it meanwhile, and copied everywhere else: a file
/// that is cut off while it is mapped would end the program.
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
