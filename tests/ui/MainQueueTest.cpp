#include <gmock/gmock.h>

#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>
#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "tests/ui/AlertAnswer.h"
#include "tests/ui/WindowTest.h"
#include "ui/Alert.h"
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
        queue.post(note(5));
        ran.push_back(1);
    });
    std::thread([&] {
        queue.post(note(2));
        queue.post([&runner, this] {
            runner = std::this_thread::get_id();
            ran.push_back(3);
        });
    }).join();
    queue.post(note(4));
    EXPECT_TRUE(ran.empty());
    EXPECT_TRUE(waitFor(5));
    EXPECT_THAT(ran, ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(runner, std::this_thread::get_id());
    queue.post(note(6));
    EXPECT_TRUE(waitFor(6));
}

TEST_F(MainQueueOfQt, ReleasesATaskBeforeTheNextOneRuns) {
    const auto held = std::make_shared<int>(0);
    queue.post([held] { ++*held; });
    queue.post([&held, this] { ran.push_back(static_cast<int>(held.use_count())); });
    EXPECT_TRUE(waitFor(1));
    EXPECT_THAT(ran, ElementsAre(1));
}

/// Counts how often it is painted.
class PaintCounter : public QWidget {
public:
    int paints = 0;

protected:
    void paintEvent(QPaintEvent*) override { ++paints; }
};

TEST_F(MainQueueOfQt, LetsTimersAndPaintingInBetweenAFloodOfTasks) {
    constexpr int flood = 200'000;
    PaintCounter window;
    window.show();
    ASSERT_TRUE(waitUntil([&window] { return window.paints > 0; }));
    const int paintsBefore = window.paints;
    int done = 0, timeouts = 0, timeoutsDuring = 0, paintsDuring = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &window, [&] {
        ++timeouts;
        window.update();
    });
    timer.start(0);

    std::thread poster([&] {
        for (int count = 0; count < flood; ++count) {
            queue.post([&] {
                // A task that costs something: all together cost 200 milliseconds at least.
                QElapsedTimer spent;
                for (spent.start(); spent.nsecsElapsed() < 1000;) continue;
                if (++done != flood) return;
                timeoutsDuring = timeouts;
                paintsDuring = window.paints - paintsBefore;
            });
        }
    });
    EXPECT_TRUE(waitUntil([&done] { return done == flood; }));
    poster.join();
    EXPECT_GT(timeoutsDuring, 2);
    EXPECT_GT(paintsDuring, 2);
}

TEST_F(MainQueueOfQt, GoesOnInsideAnAlertThatATaskOpens) {
    const AlertAnswer answer(inOrder(
        [this](QMessageBox&) {
            EXPECT_TRUE(waitFor(3));
            queue.post(note(4));
            EXPECT_TRUE(waitFor(4));
        },
        click("OK")));
    queue.post(note(1));
    queue.post([this] {
        (void)Alert{Alert::Style::informational, "x", "", {"OK"}}.runModal(nullptr);
        ran.push_back(5);
    });
    queue.post(note(2));
    queue.post(note(3));
    EXPECT_TRUE(waitFor(5));
    EXPECT_THAT(ran, ElementsAre(1, 2, 3, 4, 5));
    queue.post(note(6));
    EXPECT_TRUE(waitFor(6));
}

TEST_F(MainQueueOfQt, DropsTasksOnceItIsClosed) {
    const auto held = std::make_shared<int>(0);
    queue.post([held, this] { ran.push_back(1); });
    queue.close();
    EXPECT_EQ(held.use_count(), 1);
    queue.post(note(2));
    queue.postAfter(0ms, note(3));
    // Whatever was posted above would come before this.
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
TEST_F(MainQueueOfQt, EndsTheLoopWithWhatATaskThrows) {
    queue.post([] { throw std::runtime_error("refused"); });
    queue.post(note(2));
    EXPECT_EQ(QApplication::exec(), EXIT_FAILURE);
    EXPECT_THAT(ran, testing::IsEmpty());
    EXPECT_THAT([this] { queue.rethrowFailure(); }, testing::ThrowsMessage<std::runtime_error>("refused"));
}

TEST_F(MainQueueOfQt, MissesNoTaskThatIsPostedWhileATurnEnds) {
    constexpr int rounds = 20'000;
    std::atomic<int> done = 0;
    std::thread poster([&] {
        const QDeadlineTimer limit(waitingLimit);
        for (int round = 0; round < rounds && !limit.hasExpired(); ++round) {
            queue.post([&done] { ++done; });
            while (done <= round && !limit.hasExpired()) continue;
            // The end of the turn comes a moment later, each time another one.
            for (std::atomic<int> pause = round % 100; pause > 0;) --pause;
        }
    });
    EXPECT_TRUE(waitUntil([&done] { return done == rounds; })) << done;
    poster.join();
}

TEST_F(MainQueueOfQt, HasNothingToDoWhenItIsEmpty) {
    queue.post(note(1));
    EXPECT_TRUE(waitFor(1));
    QAbstractEventDispatcher* const loop = QAbstractEventDispatcher::instance();
    EXPECT_TRUE(eventually([loop] { return !loop->processEvents(QEventLoop::AllEvents); }));
}

}  // namespace

}  // namespace qelmo
