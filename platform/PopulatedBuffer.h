#pragma once

#include <cstddef>
#include <span>

namespace qelmo {

/// One block of memory whose pages are all there from the start, as few and as large as the system gives.
///
/// A fresh block of 8 MiB from the allocator costs some 2,000 page faults when it is first written, more than
/// hashing it; here the kernel is asked for all of it in one call.
class PopulatedBuffer {
public:
    /// Errors: std::bad_alloc.
    explicit PopulatedBuffer(std::size_t sizeBytes);
    PopulatedBuffer(PopulatedBuffer&& other) noexcept;
    PopulatedBuffer& operator=(PopulatedBuffer&&) = delete;
    ~PopulatedBuffer();

    [[nodiscard]] std::span<std::byte> span() const { return bytes_; }

private:
    std::span<std::byte> mapping_;
    std::span<std::byte> bytes_;
};

}  // namespace qelmo
