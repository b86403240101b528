#include <gmock/gmock.h>

#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "tests/ui/WindowTest.h"
#include "ui/QtMainQueue.h"

namespace qelmo {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class MainQueueOfQt : public testing::Test {
protected:
    ~MainQueueOfQt() override { queue.close(); }

    MainQueue::Task note(int number) {
        return [this, number] { ran.push_back(number); };
    }
    bool waitFor(std::size_t count) {
        return waitUntil([this, count] { return ran.size() == count; });
    }

    QtMainQueue queue;
    std::vector<int> ran;
};

TEST_F(MainQueueOfQt, RunsTasksOnTheMainThreadInTheOrderOfTheirPosting) {
    std::thread::id runner;
    queue.post([this] {
        queue.post(note(3));
        ran.push_back(1);
    });
    std::thread([&] {
        queue.post([&runner, this] {
            runner = std::this_thread::get_id();
            ran.push_back(2);
        });
    }).join();
    EXPECT_TRUE(ran.empty());
    EXPECT_TRUE(waitFor(3));
    EXPECT_THAT(ran, ElementsAre(1, 2, 3));
    EXPECT_EQ(runner, std::this_thread::get_id());
}

TEST_F(MainQueueOfQt, RunsTimersDuringAFloodOfTasks) {
    constexpr int flood = 200'000;
    int done = 0, timeouts = 0, timeoutsDuring = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &timer, [&timeouts] { ++timeouts; });
    timer.start(0);
    for (int count = 0; count < flood; ++count) {
        queue.post([&] {
            // Each task takes some time: all of them take at least 200 milliseconds.
            QElapsedTimer spent;
            for (spent.start(); spent.nsecsElapsed() < 1000;) continue;
            if (++done == flood) timeoutsDuring = timeouts;
        });
    }
    EXPECT_TRUE(waitUntil([&done] { return done == flood; }));
    EXPECT_GT(timeoutsDuring, 2);
}

TEST_F(MainQueueOfQt, DropsTasksOnceItIsClosed) {
    const auto held = std::make_shared<int>(0);
    queue.post([held, this] { ran.push_back(1); });
    queue.close();
    EXPECT_EQ(held.use_count(), 1);
    queue.post(note(2));
    queue.postAfter(0ms, note(3));
    // Anything that was posted above would run before this.
    QtMainQueue later;
    later.postAfter(0ms, note(4));
    EXPECT_TRUE(waitUntil([this] { return !ran.empty(); }));
    EXPECT_THAT(ran, ElementsAre(4));
    later.close();
}

TEST_F(MainQueueOfQt, RunsADelayedTaskNotBeforeItsTime) {
    QElapsedTimer spent;
    spent.start();
    qint64 elapsed = 0;
    queue.postAfter(60ms, [&] {
        elapsed = spent.elapsed();
        ran.push_back(2);
    });
    queue.post(note(1));
    EXPECT_TRUE(waitFor(2));
    EXPECT_THAT(ran, ElementsAre(1, 2));
    EXPECT_GE(elapsed, 55);
}

// fault: a task of the main queue throws, because the system refuses a call
TEST_F(MainQueueOfQt, EndsTheLoopWithTheErrorOfATask) {
    queue.post([] { throw std::runtime_error("refused"); });
    queue.post(note(2));
    EXPECT_EQ(QApplication::exec(), EXIT_FAILURE);
    EXPECT_THAT(ran, testing::IsEmpty());
    EXPECT_THAT([this] { queue.rethrowFailure(); }, testing::ThrowsMessage<std::runtime_error>("refused"));
}

TEST_F(MainQueueOfQt, HasNothingToDoWhenItIsEmpty) {
    queue.post(note(1));
    EXPECT_TRUE(waitFor(1));
    QAbstractEventDispatcher* const loop = QAbstractEventDispatcher::instance();
    EXPECT_TRUE(eventually([loop] { return !loop->processEvents(QEventLoop::AllEvents); }));
}

}  // namespace
}  // namespace qelmo
