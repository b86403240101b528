#pragma once

#include <deque>
#include <exception>
#include <memory>
#include <mutex>

#include "platform/MainQueue.h"

namespace qelmo {

/// The main queue on Qt's event loop.
///
/// Qt delivers everything that is posted to it before it lets the window paint, so a flood of posted tasks
/// would freeze the window. Here one wake-up stands for all waiting tasks, and after a short time in a row
/// the loop gets a turn for painting and input before the next tasks run.
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

    /// Throws what a task has thrown and the event loop was ended for, if there was such a task. Call it when
    /// the loop has ended: through the toolkit itself nothing may be thrown.
    void rethrowFailure() const;

private:
    class Turns;

    bool takeNext(Task& task);
    void runTurn();
    [[nodiscard]] bool succeeds(const Task& task);

    // Any thread, under the mutex.
    std::mutex mutex_;
    std::deque<Task> tasks_;
    bool turnIsDue_ = false;

    // The main thread's; other threads only post an event to it, under the mutex.
    std::unique_ptr<Turns> turns_;

    // The main thread's.
    std::exception_ptr failure_;
};

}  // namespace qelmo
