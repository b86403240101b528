#include "platform/FileReading.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>
#include <utility>

#include "platform/FilePath.h"
#include "platform/SystemError.h"

namespace qelmo {

namespace {

void requireRegularFile(const struct stat& status, const std::string& path) {
    if (S_ISREG(status.st_mode)) return;
    if (S_ISDIR(status.st_mode)) throwSystemError(EISDIR, "read", path);
    throwSystemError(EINVAL, "read (not a regular file)", path);
}

/// Uninitialised memory, or null if there is not enough. Large pages are requested on Linux: with small pages
/// a new block of 8 MiB causes about 2,000 page faults, which take half as long as its digest.
FileBytes memoryFor(std::size_t sizeBytes) {
    std::unique_ptr<std::byte[]> start(new (std::nothrow) std::byte[sizeBytes]);
#ifdef __linux__
    constexpr std::size_t pageBytes = 4096;
    void* page = start.get();
    std::size_t room = sizeBytes;
    // Only a hint. It must start at a page boundary.
    if (std::align(pageBytes, pageBytes, page, room) != nullptr) (void)::madvise(page, room, MADV_HUGEPAGE);
#endif
    return {std::move(start), sizeBytes};
}

}  // namespace

bool isReadable(const std::string& path) {
    return !holdsNul(path) && ::access(path.c_str(), R_OK) == 0;
}

std::vector<std::string> namesInFolder(const std::string& path) {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(path, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
        names.push_back(entry->path().filename());
    if (error) throwSystemError(error.value(), "list", path);
    return names;
}

RegularFile::RegularFile(std::string path) : path_(std::move(path)) {
    if (holdsNul(path_)) throwSystemError(EINVAL, "open", path_);
    struct stat status {};
    if (::stat(path_.c_str(), &status) != 0) throwSystemError(errno, "open", path_);
    requireRegularFile(status, path_);
    do {
        // O_NONBLOCK: if a FIFO has replaced the file since the check above, opening it must not block.
        descriptor_ = FileDescriptor(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    } while (!descriptor_.isOpen() && errno == EINTR);
    if (!descriptor_.isOpen() || ::fstat(descriptor_.get(), &status) != 0)
        throwSystemError(errno, "open", path_);
    requireRegularFile(status, path_);
    sizeBytes_ = static_cast<std::uint64_t>(status.st_size);
}

FileBytes RegularFile::readAll(std::uint64_t limitBytes) {
    if (sizeBytes_ > limitBytes) throwSystemError(EFBIG, "read", path_);
    // The extra byte detects a file that has grown.
    FileBytes bytes = memoryFor(static_cast<std::size_t>(sizeBytes_) + 1);
    if (bytes.start == nullptr) throwSystemError(ENOMEM, "read", path_);

    std::size_t count = 0;
    while (count < bytes.sizeBytes) {
        const ssize_t got = ::read(descriptor_.get(), &bytes.span()[count], bytes.sizeBytes - count);
        if (got == 0) break;
        if (got > 0) count += static_cast<std::size_t>(got);
        if (got < 0 && errno != EINTR) throwSystemError(errno, "read", path_);
    }
    if (count > sizeBytes_) throwSystemError(EAGAIN, "read (the file is being changed)", path_);
    bytes.sizeBytes = count;
    return bytes;
}

}  // namespace qelmo
