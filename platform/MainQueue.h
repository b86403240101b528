#pragma once

#include <chrono>
#include <functional>

namespace qelmo {

/// The queue through which everything reaches the main thread: first in, first out.
///
/// Threads: both operations may be called from any thread; every task runs on the main thread, on its own,
///          never inside the call that posted it. While a task shows a modal alert, the next ones run, still
///          in order, inside the alert's own event loop.
/// Once the application object is gone, tasks are dropped. They hold what they work on weakly and resolve it
/// when they run. What one of them throws ends the event loop and is thrown again after it.
class MainQueue {
public:
    using Task = std::function<void()>;

    MainQueue() = default;
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;
    virtual ~MainQueue() = default;

    virtual void post(Task task) = 0;

    /// Posts the task when `delay` has passed.
    virtual void postAfter(std::chrono::milliseconds delay, Task task) = 0;
};

}  // namespace qelmo
