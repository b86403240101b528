#include "platform/FileReading.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "platform/LeasedMapping.h"
#include "platform/PopulatedBuffer.h"
#include "platform/SystemError.h"

namespace qelmo {

namespace {

/// Below, a copy costs less than the calls of a mapping.
constexpr std::size_t worthMappingBytes = std::size_t{1} << 20;

void requireRegularFile(const struct stat& status, const std::string& path) {
    if (S_ISREG(status.st_mode)) return;
    throwSystemError(S_ISDIR(status.st_mode) ? EISDIR : EINVAL,
                     S_ISDIR(status.st_mode) ? "read" : "read (not a regular file)", path);
}

FileDescriptor openForReading(const std::string& path) {
    if (holdsNul(path)) throwSystemError(EINVAL, "open", path);
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) throwSystemError(errno, "open", path);
    requireRegularFile(status, path);

    int descriptor = -1;
    do {
        // O_NONBLOCK: a FIFO that took the file's place since the look above must not block either.
        descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) throwSystemError(errno, "open", path);
    return FileDescriptor(descriptor);
}

/// Reads until `sizeBytes` have come or the file ends; returns how many came.
std::size_t readUpTo(int descriptor, std::byte* buffer, std::size_t sizeBytes, const std::string& path) {
    std::size_t count = 0;
    while (count < sizeBytes) {
        const ssize_t got = ::read(descriptor, buffer + count, sizeBytes - count);
        if (got == 0) break;
        if (got > 0) count += static_cast<std::size_t>(got);
        if (got < 0 && errno != EINTR) throwSystemError(errno, "read", path);
    }
    return count;
}

std::shared_ptr<PopulatedBuffer> bufferFor(std::size_t sizeBytes, const std::string& path) {
    try {
        return std::make_shared<PopulatedBuffer>(sizeBytes);
    } catch (const std::bad_alloc&) {
        throwSystemError(ENOMEM, "read", path);
    }
}

}  // namespace

bool isReadable(const std::string& path) {
    return !holdsNul(path) && ::access(path.c_str(), R_OK) == 0;
}

bool isFolder(const std::string& path) {
    struct stat status {};
    return !holdsNul(path) && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool exists(const std::string& path) {
    struct stat status {};
    return !holdsNul(path) && ::stat(path.c_str(), &status) == 0;
}

std::vector<std::string> namesInFolder(const std::string& path) {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path.c_str()), ::closedir);
    if (folder == nullptr) throwSystemError(errno, "list", path);

    std::vector<std::string> names;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(folder.get());
        if (entry == nullptr) break;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    if (errno != 0) throwSystemError(errno, "list", path);
    return names;
}

RegularFile::RegularFile(std::string path) : path_(std::move(path)), descriptor_(openForReading(path_)) {
    struct stat status {};
    if (::fstat(descriptor_.get(), &status) != 0) throwSystemError(errno, "open", path_);
    requireRegularFile(status, path_);
    sizeBytes_ = static_cast<std::uint64_t>(status.st_size);
}

FileBytes RegularFile::readAll(std::uint64_t limitBytes) {
    if (sizeBytes_ > limitBytes) throwSystemError(EFBIG, "read", path_);
    const auto wanted = static_cast<std::size_t>(sizeBytes_);
    if (wanted >= worthMappingBytes) {
        if (std::shared_ptr<LeasedMapping> mapping = LeasedMapping::create(descriptor_.get(), wanted))
            return {mapping, mapping->span()};
    }

    const auto buffer = bufferFor(wanted, path_);
    const std::size_t count = readUpTo(descriptor_.get(), buffer->span().data(), wanted, path_);

    std::byte beyond{};
    if (count == wanted && readUpTo(descriptor_.get(), &beyond, 1, path_) != 0)
        throwSystemError(EAGAIN, "read (the file is being changed)", path_);
    return {buffer, buffer->span().first(count)};
}

}  // namespace qelmo
