#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <thread>

#include "tests/support/Waiting.h"

namespace qelmo {

/// How many threads and open descriptors this process has.
struct ProcessResources {
    std::size_t threads;
    std::size_t descriptors;

    [[nodiscard]] static ProcessResources now() {
        // A sanitizer adds a thread of its own beside the program's first.
        [[maybe_unused]] static const bool firstThreadHasRun = (std::thread([] {}).join(), true);
        return {count("/proc/self/task"), count("/proc/self/fd")};
    }

    /// Waits until no more is in use than what this value says; false when it stays so.
    [[nodiscard]] bool areBack() const {
        return eventually([this] {
            const ProcessResources used = now();
            return used.threads <= threads && used.descriptors <= descriptors;
        });
    }

private:
    static std::size_t count(const char* folder) {
        const std::filesystem::directory_iterator entries(folder);
        return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
    }
};

}  // namespace qelmo
