#pragma once

#include <deque>
#include <utility>

#include "platform/MainQueue.h"
#include "platform/ThreadSafety.h"
#include "tests/support/Waiting.h"

namespace qelmo {

/// A main queue without an event loop. The test decides when and where the tasks run; their order is kept.
class InMemoryMainQueue : public MainQueue {
public:
    void post(Task task) override {
        const MutexLock lock(mutex_);
        tasks_.push_back(std::move(task));
    }

    /// Ignores the delay: the test decides when the task runs.
    void postAfter(std::chrono::milliseconds /*delay*/, Task task) override { post(std::move(task)); }

    /// Runs tasks and waits for later ones until `condition` holds. Returns false if no further task came
    /// within the limit.
    template <typename Condition>
    [[nodiscard]] bool runUntil(Condition condition) {
        while (!condition()) {
            Task task;
            if (!eventually([&] { return takeNext(task); })) return false;
            task();
        }
        return true;
    }

    /// Runs the queued tasks and what they post.
    void runAll() {
        for (Task task; takeNext(task);) task();
    }

private:
    [[nodiscard]] bool takeNext(Task& task) {
        const MutexLock lock(mutex_);
        if (tasks_.empty()) return false;
        task = std::move(tasks_.front());
        tasks_.pop_front();
        return true;
    }

    Mutex mutex_;
    std::deque<Task> tasks_ GUARDED_BY(mutex_);
};

}  // namespace qelmo
