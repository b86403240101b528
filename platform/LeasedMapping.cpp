#include "platform/LeasedMapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <csignal>
#include <utility>

namespace qelmo {

namespace {

#ifdef __linux__
constexpr int mappingFlags = MAP_PRIVATE | MAP_POPULATE;

bool takeLease(int file) {
    // Whoever waits for the file makes the system send a signal. Of all signals this one is ignored by
    // itself.
    return ::fcntl(file, F_SETSIG, SIGURG) == 0 && ::fcntl(file, F_SETLEASE, F_RDLCK) == 0;
}

/// The caller's descriptor would keep it.
void giveLeaseBack(int file) {
    (void)::fcntl(file, F_SETLEASE, F_UNLCK);
}
#else
constexpr int mappingFlags = MAP_PRIVATE;

bool takeLease(int /*file*/) {
    return false;
}

void giveLeaseBack(int /*file*/) {}
#endif

}  // namespace

std::unique_ptr<LeasedMapping> LeasedMapping::create(int file, std::size_t sizeBytes) {
    FileDescriptor lease(::fcntl(file, F_DUPFD_CLOEXEC, 0));
    if (sizeBytes == 0 || !lease.isOpen() || !takeLease(lease.get())) return nullptr;

    // From here on the length stays what it is.
    struct stat status {};
    const bool fits = ::fstat(lease.get(), &status) == 0 && std::cmp_equal(status.st_size, sizeBytes);
    void* const start =
        fits ? ::mmap(nullptr, sizeBytes, PROT_READ, mappingFlags, lease.get(), 0) : MAP_FAILED;
    if (start == MAP_FAILED) {
        giveLeaseBack(lease.get());
        return nullptr;
    }
    return std::unique_ptr<LeasedMapping>(
        new LeasedMapping(std::move(lease), {static_cast<const std::byte*>(start), sizeBytes}));
}

LeasedMapping::LeasedMapping(FileDescriptor lease, std::span<const std::byte> bytes)
    : lease_(std::move(lease)), bytes_(bytes) {}

LeasedMapping::~LeasedMapping() {
    ::munmap(const_cast<std::byte*>(bytes_.data()), bytes_.size());
    giveLeaseBack(lease_.get());
}

}  // namespace qelmo
