#include "ui/QtMainQueue.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QTimer>
#include <cstdlib>
#include <utility>

namespace qelmo {

/// Runs the queue in turns of the event loop. An event, which any thread may post, starts the first turn. A
/// timer starts the next ones, because the loop paints and reads input before it checks timers again.
class QtMainQueue::Turns : public QTimer {
public:
    explicit Turns(QtMainQueue& queue) : queue_(queue) {
        setInterval(0);
        setSingleShot(true);
        callOnTimeout([this] { queue_.runTurn(); });
    }

protected:
    void customEvent(QEvent* /*event*/) override { queue_.runTurn(); }

private:
    QtMainQueue& queue_;
};

QtMainQueue::QtMainQueue() : turns_(std::make_unique<Turns>(*this)) {}

QtMainQueue::~QtMainQueue() = default;

void QtMainQueue::post(Task task) {
    const MutexLock lock(mutex_);
    if (turns_ == nullptr) return;
    tasks_.push_back(std::move(task));
    if (!std::exchange(turnIsDue_, true)) QCoreApplication::postEvent(turns_.get(), new QEvent(QEvent::User));
}

void QtMainQueue::postAfter(std::chrono::milliseconds delay, Task task) {
    post([this, delay, task = std::move(task)] {
        QTimer::singleShot(delay, turns_.get(), [this, task] { post(task); });
    });
}

void QtMainQueue::close() {
    // Destroyed after the lock is released.
    std::unique_ptr<Turns> turns;
    std::deque<Task> dropped;
    const MutexLock lock(mutex_);
    turns.swap(turns_);
    dropped.swap(tasks_);
}

bool QtMainQueue::takeNext(Task& task) {
    const MutexLock lock(mutex_);
    if (tasks_.empty()) {
        turnIsDue_ = false;
        if (turns_ != nullptr) turns_->stop();
        return false;
    }
    task = std::move(tasks_.front());
    tasks_.pop_front();
    return true;
}

void QtMainQueue::runTurn() {
    if (failure_) return;
    // Started before the tasks: if one of them opens an alert, the alert's event loop runs the next ones.
    turns_->start();
    constexpr std::chrono::milliseconds budget{8};
    QElapsedTimer spent;
    spent.start();
    try {
        for (Task task; takeNext(task); task = nullptr) {
            task();
            if (spent.elapsed() >= budget.count()) return turns_->start();
        }
    } catch (...) {
        failure_ = std::current_exception();
        QCoreApplication::exit(EXIT_FAILURE);
    }
}

void QtMainQueue::rethrowFailure() const {
    if (failure_) std::rethrow_exception(failure_);
}

}  // namespace qelmo
