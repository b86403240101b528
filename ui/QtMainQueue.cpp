#include "ui/QtMainQueue.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QObject>
#include <QTimer>
#include <cstdlib>
#include <utility>

namespace qelmo {

namespace {

constexpr std::chrono::milliseconds turnBudget{8};

}  // namespace

/// Gives the queue its turns of the event loop.
class QtMainQueue::Turns : public QObject {
public:
    explicit Turns(QtMainQueue& queue) : queue_(queue) {
        next_.setSingleShot(true);
        connect(&next_, &QTimer::timeout, this, [this] { queue_.runTurn(); });
    }

    /// A timer, not an event: the loop paints and reads input before it looks at timers again.
    void keepComing() { next_.start(0); }
    void stop() { next_.stop(); }

protected:
    void customEvent(QEvent* /*event*/) override { queue_.runTurn(); }

private:
    QtMainQueue& queue_;
    QTimer next_;
};

QtMainQueue::QtMainQueue() : turns_(std::make_unique<Turns>(*this)) {}

QtMainQueue::~QtMainQueue() = default;

void QtMainQueue::post(Task task) {
    const std::lock_guard lock(mutex_);
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
    std::unique_ptr<Turns> turns;
    std::deque<Task> dropped;
    const std::lock_guard lock(mutex_);
    turns.swap(turns_);
    dropped.swap(tasks_);
}

bool QtMainQueue::takeNext(Task& task) {
    const std::lock_guard lock(mutex_);
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
    // Before the tasks, not after them: when one of them opens an alert, the alert's own loop goes on with
    // the tasks behind it.
    turns_->keepComing();
    QElapsedTimer spent;
    spent.start();
    for (Task task; takeNext(task); task = nullptr) {
        if (!succeeds(task)) return;
        if (spent.elapsed() >= turnBudget.count()) return turns_->keepComing();
    }
}

bool QtMainQueue::succeeds(const Task& task) {
    try {
        task();
        return true;
    } catch (...) {
        failure_ = std::current_exception();
        QCoreApplication::exit(EXIT_FAILURE);
        return false;
    }
}

void QtMainQueue::rethrowFailure() const {
    if (failure_) std::rethrow_exception(failure_);
}

}  // namespace qelmo
