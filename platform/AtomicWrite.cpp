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

/// A file that is removed again unless it has been given its final name.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& target)
        : path_(target + std::string(temporaryMark) + "XXXXXX") {
        descriptor_ = FileDescriptor(::mkostemp(path_.data(), O_CLOEXEC));
        if (!descriptor_.isOpen()) throwSystemError(errno, "create", target);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        if (!path_.empty()) ::unlink(path_.c_str());
    }

    [[nodiscard]] int descriptor() const { return descriptor_.get(); }

    void rename(const std::string& target) {
        if (::rename(path_.c_str(), target.c_str()) != 0) throwSystemError(errno, "replace", target);
        path_.clear();
    }

private:
    std::string path_;
    FileDescriptor descriptor_;
};

void flushToDisk(int descriptor, const std::string& name) {
#ifdef __APPLE__
    // fsync leaves the bytes in the drive's own memory there. Not every file system knows this call.
    if (::fcntl(descriptor, F_FULLFSYNC) == 0) return;
#endif
    while (::fsync(descriptor) != 0) {
        if (errno != EINTR) throwSystemError(errno, "flush", name);
    }
}

}  // namespace

void writeFileAtomically(const std::string& path, std::span<const std::byte> bytes, Durability durability) {
    if (holdsNul(path)) throwSystemError(EINVAL, "create", path);
    TemporaryFile temporary(path);
    // mkostemp makes the file private to its owner; what it replaces is meant to be read by everyone.
    if (::fchmod(temporary.descriptor(), 0644) != 0) throwSystemError(errno, "create", path);
    if (const int error = writeAll(temporary.descriptor(), bytes); error != 0)
        throwSystemError(error, "write", path);
    if (durability == Durability::flushedToDisk) flushToDisk(temporary.descriptor(), path);
    temporary.rename(path);

    if (durability == Durability::flushedToDisk) {
        const std::string folder = parentFolder(path);
        const FileDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!opened.isOpen()) throwSystemError(errno, "flush", folder);
        flushToDisk(opened.get(), folder);
    }
}

}  // namespace qelmo
