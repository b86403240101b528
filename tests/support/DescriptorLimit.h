#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>
#include <vector>

#include "platform/FileDescriptor.h"

namespace qelmo {

/// Until the end of the scope this process can open exactly `left` descriptors more.
class DescriptorLimit {
public:
    explicit DescriptorLimit(std::size_t left) {
        // The lowest free numbers are the ones that would be given out next.
        std::vector<FileDescriptor> free(left + 1);
        for (FileDescriptor& one : free) one = FileDescriptor(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
        if (!free.back().isOpen() || ::getrlimit(RLIMIT_NOFILE, &before_) != 0)
            throw std::runtime_error("The test has too few descriptors");
        const rlimit lower{static_cast<rlim_t>(free.back().get()), before_.rlim_max};
        if (::setrlimit(RLIMIT_NOFILE, &lower) != 0)
            throw std::runtime_error("The test cannot limit its descriptors");
    }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
};

}  // namespace qelmo
