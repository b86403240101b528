#pragma once

#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#ifdef __APPLE__
#include <libproc.h>
#endif

#include "tests/support/Waiting.h"

namespace qelmo {

struct ProcessResources {
    std::size_t threads;
    std::size_t descriptors;

    [[nodiscard]] static ProcessResources now() {
        // A sanitizer starts its own thread with the program's first, so one thread runs before the count.
        [[maybe_unused]] static const bool firstThreadHasRun = runOneThread();
#ifdef __APPLE__
        proc_taskinfo task{};
        (void)::proc_pidinfo(::getpid(), PROC_PIDTASKINFO, 0, &task, sizeof task);
        return {static_cast<std::size_t>(task.pti_threadnum), count("/dev/fd")};
#else
        return {count("/proc/self/task"), count("/proc/self/fd")};
#endif
    }

    /// True if at most this many threads and descriptors are in use.
    [[nodiscard]] bool areBackNow() const {
        const ProcessResources used = now();
        return used.threads <= threads && used.descriptors <= descriptors;
    }

    /// Waits until they are back. Returns false if that does not happen within the limit.
    [[nodiscard]] bool areBack() const {
        return eventually([this] { return areBackNow(); });
    }

private:
    static bool runOneThread() {
#ifdef __APPLE__
        std::thread([] {}).join();
        return true;
#else
        pid_t thread = 0;
        std::thread([&thread] { thread = ::gettid(); }).join();
        // The system may still list a thread that was joined.
        return eventually(
            [&] { return !std::filesystem::exists("/proc/self/task/" + std::to_string(thread)); });
#endif
    }

    static std::size_t count(const char* folder) {
        const std::filesystem::directory_iterator entries(folder);
        return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
    }
};

}  // namespace qelmo
