#pragma once

#include <deque>
#include <exception>
#include <memory>

#include "platform/MainQueue.h"
#include "platform/ThreadSafety.h"

namespace qelmo {

/// The main queue on Qt's event loop.
///
/// Qt delivers all posted events before it lets the window paint, so a flood of posted tasks would freeze the
/// window. Here one event wakes the queue for all waiting tasks. When tasks have run for some milliseconds,
/// the loop paints and reads input before the next ones.
///
/// Create it on the main thread after the application object, and `close` it there before that object is
/// gone.
class QtMainQueue : public MainQueue {
public:
    QtMainQueue();
    ~QtMainQueue() override;

    void post(Task task) override;
    void postAfter(std::chrono::milliseconds delay, Task task) override;

    /// Discards queued and later tasks.
    void close();

    /// Rethrows the exception of a task, if there was one. Call it after the event loop has ended: exceptions
    /// must not pass through Qt.
    void rethrowFailure() const;

private:
    class Turns;

    bool takeNext(Task& task);
    void runTurn();

    Mutex mutex_;
    std::deque<Task> tasks_ GUARDED_BY(mutex_);
    bool turnIsDue_ GUARDED_BY(mutex_) = false;

    // Used on the main thread. Other threads only post events to `turns_`, while they hold the mutex.
    std::unique_ptr<Turns> turns_;
    std::exception_ptr failure_;
};

}  // namespace qelmo
