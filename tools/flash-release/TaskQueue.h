#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <utility>

#include "platform/MainQueue.h"

namespace qelmo {

/// A main queue for a program without an event loop: the main thread takes one task after the other.
class TaskQueue : public MainQueue {
public:
    void post(Task task) override { postAfter(std::chrono::milliseconds::zero(), std::move(task)); }

    void postAfter(std::chrono::milliseconds delay, Task task) override {
        const std::lock_guard lock(mutex_);
        tasks_.emplace(Clock::now() + delay, std::move(task));
        changed_.notify_one();
    }

    /// Waits for the next task and runs it. Call it on the main thread.
    void runNext() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !tasks_.empty(); });
        while (tasks_.begin()->first > Clock::now()) changed_.wait_until(lock, tasks_.begin()->first);
        const Task task = std::move(tasks_.begin()->second);
        tasks_.erase(tasks_.begin());
        lock.unlock();
        task();
    }

private:
    using Clock = std::chrono::steady_clock;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::multimap<Clock::time_point, Task> tasks_;
};

}  // namespace qelmo
