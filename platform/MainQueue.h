#pragma once

#include <chrono>
#include <functional>

namespace qelmo {

/// The task queue of the main thread: first in, first out.
///
/// Threads: both operations may be called from any thread. Every task runs on the main thread, never inside
///          the call that posted it. While a task shows a modal alert, later tasks run in order.
/// Tasks hold weak references to what they work on and resolve them when they run. Once the application
/// object is gone, queued and later tasks are discarded. An exception from a task ends the event loop and is
/// rethrown after the loop has ended.
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
