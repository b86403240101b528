#pragma once

#include <deque>
#include <exception>
#include <memory>

#include "platform/MainQueue.h"
#include "platform/ThreadSafety.h"

namespace qelmo {

/// The main queue on Qt's event loop.
///
/// Qt delivers everything that is posted to it before it lets the window paint, so a flood of posted tasks
/// would freeze the window. Here one wake-up stands for all waiting tasks, and after a short time in a row
/// the loop paints and reads input before the next tasks run.
///
/// Create it on the main thread when the application object exists, and `close` it there before that goes.
class QtMainQueue : public MainQueue {
public:
    QtMainQueue();
    ~QtMainQueue() override;

    void post(Task task) override;
    void postAfter(std::chrono::milliseconds delay, Task task) override;

    /// Drops the waiting tasks and all that come later.
    void close();

    /// Throws what a task has thrown, if one has. Call it when the loop has ended: through the toolkit itself
    /// nothing may be thrown.
    void rethrowFailure() const;

private:
    class Turns;

    bool takeNext(Task& task);
    void runTurn();

    Mutex mutex_;
    std::deque<Task> tasks_ GUARDED_BY(mutex_);
    bool turnIsDue_ GUARDED_BY(mutex_) = false;

    // The main thread's; other threads only post to the first one, under the mutex.
    std::unique_ptr<Turns> turns_;
    std::exception_ptr failure_;
};

}  // namespace qelmo
