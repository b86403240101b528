#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace qelmo {

/// Only a broken program takes this long.
inline constexpr std::chrono::seconds waitingLimit{20};

/// Something that happens once, on any thread.
class Event {
public:
    void happen() {
        const std::lock_guard lock(mutex_);
        happened_ = true;
        condition_.notify_all();
    }

    /// Returns false if it did not happen within the limit.
    [[nodiscard]] bool wait() {
        std::unique_lock lock(mutex_);
        return condition_.wait_for(lock, waitingLimit, [this] { return happened_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable condition_;
    bool happened_ = false;
};

/// For conditions that no event reports (a thread has ended, a descriptor was closed): checks repeatedly
/// until `condition` holds. Returns false if it did not hold within the limit.
template <typename Condition>
[[nodiscard]] bool eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + waitingLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace qelmo
