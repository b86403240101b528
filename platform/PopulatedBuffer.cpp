#include "platform/PopulatedBuffer.h"

#include <sys/mman.h>

#include <cstdint>
#include <limits>
#include <new>
#include <utility>

namespace qelmo {

namespace {

constexpr std::size_t largePageBytes = std::size_t{2} << 20;

std::size_t distanceToLargePage(const void* start) {
    return (largePageBytes - reinterpret_cast<std::uintptr_t>(start) % largePageBytes) % largePageBytes;
}

/// Both are hints that only Linux knows. What the system does not grant comes page by page, when the bytes
/// are written.
void populate([[maybe_unused]] std::span<std::byte> bytes) {
#ifdef MADV_HUGEPAGE
    (void)::madvise(bytes.data(), bytes.size(), MADV_HUGEPAGE);
#endif
#ifdef MADV_POPULATE_WRITE
    (void)::madvise(bytes.data(), bytes.size(), MADV_POPULATE_WRITE);
#endif
}

}  // namespace

PopulatedBuffer::PopulatedBuffer(std::size_t sizeBytes) {
    if (sizeBytes == 0) return;
    if (sizeBytes > std::numeric_limits<std::size_t>::max() - largePageBytes) throw std::bad_alloc();
#ifdef QELMO_SANITIZED
    // A sanitizer sees where an allocation ends, but not where the bytes of a mapping do.
    bytes_ = {new (std::nothrow) std::byte[sizeBytes], sizeBytes};
    if (bytes_.data() == nullptr) throw std::bad_alloc();
    return;
#endif
    // A large page begins at a multiple of its size; only what can hold one is worth the room for that.
    const std::size_t room = sizeBytes < largePageBytes ? 0 : largePageBytes;
    void* const start =
        ::mmap(nullptr, sizeBytes + room, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (start == MAP_FAILED) throw std::bad_alloc();
    mapping_ = {static_cast<std::byte*>(start), sizeBytes + room};
    bytes_ = mapping_.subspan(room == 0 ? 0 : distanceToLargePage(start), sizeBytes);
    populate(bytes_);
}

PopulatedBuffer::PopulatedBuffer(PopulatedBuffer&& other) noexcept
    : mapping_(std::exchange(other.mapping_, {})), bytes_(std::exchange(other.bytes_, {})) {}

PopulatedBuffer::~PopulatedBuffer() {
#ifdef QELMO_SANITIZED
    delete[] bytes_.data();
#endif
    if (!mapping_.empty()) ::munmap(mapping_.data(), mapping_.size());
}

}  // namespace qelmo
