#include "platform/AtomicWrite.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/FileDescriptor.h"
#include "platform/FilePath.h"
#include "platform/SystemError.h"

namespace qelmo {

namespace {

void flushToDisk(int descriptor, const std::string& name) {
#ifdef __APPLE__
    // On macOS fsync leaves the bytes in the drive's cache. Not every file system supports F_FULLFSYNC.
    if (::fcntl(descriptor, F_FULLFSYNC) == 0) return;
#endif
    while (::fsync(descriptor) != 0) {
        if (errno != EINTR) throwSystemError(errno, "flush", name);
    }
}

}  // namespace

void writeFileAtomically(const std::string& path, std::span<const std::byte> bytes) {
    if (holdsNul(path)) throwSystemError(EINVAL, "create", path);
    std::string temporary = path + std::string(temporaryMark) + "XXXXXX";
    const FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file.isOpen()) throwSystemError(errno, "create", path);
    try {
        // mkostemp creates a file that only its owner can read; the target must be readable by everyone.
        if (::fchmod(file.get(), 0644) != 0) throwSystemError(errno, "create", path);
        if (const int error = writeAll(file.get(), bytes); error != 0) throwSystemError(error, "write", path);
        flushToDisk(file.get(), path);
        if (::rename(temporary.c_str(), path.c_str()) != 0) throwSystemError(errno, "replace", path);
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }

    const std::string folder = parentFolder(path);
    const FileDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened.isOpen()) throwSystemError(errno, "flush", folder);
    flushToDisk(opened.get(), folder);
}

}  // namespace qelmo
