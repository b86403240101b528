#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>
#include <vector>

#include "platform/FileDescriptor.h"

namespace qelmo {

/// Lowers one limit of this process (RLIMIT_...) until the end of the scope.
class ResourceLimit {
public:
    using Kind = decltype(RLIMIT_NOFILE);

    ResourceLimit(Kind kind, rlim_t value) : kind_(kind) {
        ::getrlimit(kind_, &before_);
        const rlimit lower{value, before_.rlim_max};
        if (::setrlimit(kind_, &lower) != 0) throw std::runtime_error("The test cannot set a limit");
    }
    ResourceLimit(const ResourceLimit&) = delete;
    ResourceLimit& operator=(const ResourceLimit&) = delete;
    ~ResourceLimit() { ::setrlimit(kind_, &before_); }

private:
    const Kind kind_;
    rlimit before_{};
};

/// Lets this process open exactly `left` more descriptors until the end of the scope.
class DescriptorLimit {
public:
    explicit DescriptorLimit(std::size_t left) : limit_(RLIMIT_NOFILE, firstNumberTooHigh(left)) {}

private:
    static rlim_t firstNumberTooHigh(std::size_t left) {
        // The system gives out the lowest free numbers first. So these are the numbers that it would give out
        // next.
        std::vector<FileDescriptor> free(left + 1);
        for (FileDescriptor& one : free) one = FileDescriptor(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
        return static_cast<rlim_t>(free.back().get());
    }

    const ResourceLimit limit_;
};

}  // namespace qelmo
