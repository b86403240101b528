#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "platform/MainQueue.h"
#include "tests/support/Waiting.h"

namespace qelmo {

/// A main queue without an event loop: tasks run, in order, when and where the test says so.
class InMemoryMainQueue : public MainQueue {
public:
    void post(Task task) override {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        posted_.notify_all();
    }

    /// The delay is left out: the test decides when the task runs.
    void postAfter(std::chrono::milliseconds /*delay*/, Task task) override { post(std::move(task)); }

    /// Runs tasks, waiting for those still to come, until `condition` holds; false when none came in time.
    template <typename Condition>
    [[nodiscard]] bool runUntil(Condition condition) {
        while (!condition()) {
            std::unique_lock lock(mutex_);
            if (!posted_.wait_for(lock, waitingLimit, [this] { return !tasks_.empty(); })) return false;
            const Task task = std::exchange(tasks_.front(), nullptr);
            tasks_.pop_front();
            lock.unlock();
            task();
        }
        return true;
    }

    /// Runs what waits now and what these tasks post.
    void runAll() {
        (void)runUntil([this] { return isEmpty(); });
    }

    [[nodiscard]] bool isEmpty() {
        const std::lock_guard lock(mutex_);
        return tasks_.empty();
    }

private:
    std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<Task> tasks_;
};

}  // namespace qelmo
