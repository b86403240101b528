#include "ui/QtMainQueue.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <cstdlib>
#include <utility>

namespace qelmo {

QtMainQueue::QtMainQueue() : turns_(std::make_unique<QTimer>()) {
    // A timer, not an event: the loop paints and reads input before it looks at timers again.
    turns_->setInterval(0);
    turns_->setSingleShot(true);
    QObject::connect(turns_.get(), &QTimer::timeout, turns_.get(), [this] { runTurn(); });
}

QtMainQueue::~QtMainQueue() = default;

void QtMainQueue::post(Task task) {
    const MutexLock lock(mutex_);
    if (turns_ == nullptr) return;
    tasks_.push_back(std::move(task));
    if (!std::exchange(turnIsDue_, true))
        QMetaObject::invokeMethod(
            turns_.get(), [this] { runTurn(); }, Qt::QueuedConnection);
}

void QtMainQueue::postAfter(std::chrono::milliseconds delay, Task task) {
    post([this, delay, task = std::move(task)] {
        QTimer::singleShot(delay, turns_.get(), [this, task] { post(task); });
    });
}

void QtMainQueue::close() {
    std::unique_ptr<QTimer> turns;
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
    // Before the tasks: when one of them opens an alert, the alert's own loop goes on with the next ones.
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
