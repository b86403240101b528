// Measures the real window from inside. Its own bundle holds the release, HOME the tool. Prints "name value"
// lines.
//   window_benchmark refresh ROUNDS    a round: nanoseconds that the refresh button blocks, and of one load
//   window_benchmark job LINES         the job of HOME's tool, which prints so many lines
//   window_benchmark jobs COUNT        so many jobs in one window
//   window_benchmark pieces COUNT BYTES [lines]    text posted in pieces, with or without line feeds
//   window_benchmark direct LINES      the reference for the job: a text view fed without a queue and a tool

#include <sys/resource.h>

#include <QApplication>
#include <QComboBox>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QScrollBar>
#include <QTextCursor>
#include <QTimer>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string_view>

#include "platform/LaunchContext.h"
#include "release/FlasherResources.h"
#include "tests/benchmarks/Stopwatch.h"
#include "ui/ActionButton.h"
#include "ui/AppDelegate.h"
#include "ui/DesktopLook.h"
#include "ui/LogTextView.h"
#include "ui/QtMainQueue.h"

namespace {

using namespace qelmo;

/// quit() would close the window, too.
void leaveLoop() {
    QApplication::exit();
}

double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Looks at the event loop from inside: how long it was away, and how often the log was painted.
class LoopWatch : public QObject {
public:
    explicit LoopWatch(QWidget& painted) {
        painted.installEventFilter(this);
        connect(&beat_, &QTimer::timeout, this, [this] { turn(); });
        beat_.start(1);
    }

    void report() const {
        std::printf("longest_gap_ms %.3f\n", longest_ * 1e3);
        std::printf("paints_per_second %.2f\n", paints_ / all_.seconds());
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Paint) ++paints_;
        return QObject::eventFilter(watched, event);
    }

private:
    void turn() {
        const double now = all_.seconds();
        longest_ = std::max(longest_, now - last_);
        last_ = now;
    }

    const Stopwatch all_;
    QTimer beat_;
    double last_ = 0;
    double longest_ = 0;
    int paints_ = 0;
};

struct Window {
    explicit Window(const LaunchContext& context)
        : delegate(std::make_shared<AppDelegate>(mainQueue, context, nullptr)) {
        delegate->applicationDidFinishLaunching();
        // What was posted at the start is done when this has run.
        delegate->appendLog("", false);
        QTimer::singleShot(300, [] { leaveLoop(); });
        QApplication::exec();
    }
    ~Window() {
        delegate.reset();
        mainQueue->close();
    }

    const std::shared_ptr<QtMainQueue> mainQueue = std::make_shared<QtMainQueue>();
    std::shared_ptr<AppDelegate> delegate;
};

int measureRefresh(const LaunchContext& context, int rounds) {
    const Window window(context);
    for (; rounds > 0; --rounds) {
        const Stopwatch refresh;
        window.delegate->refreshButton->click();
        const auto refreshTime = refresh.nanoseconds();
        const Stopwatch load;
        const FlasherResources release = FlasherResources::load(context.bundleURL, context.homeFolder);
        std::printf("round %lld %lld\n", refreshTime, load.nanoseconds());
        if (!window.delegate->resources || release.checksum != window.delegate->resources->checksum) return 1;
    }
    return 0;
}

/// Presses the first button of whatever alert is open.
void answerAlerts() {
    if (auto* const box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget()))
        box->defaultButton()->click();
}

/// The main thread's own time for each tenth of what is counted.
class Tenths {
public:
    explicit Tenths(int all) : all_(all) {}

    void look(int count) {
        while (next_ <= 10 && count >= all_ / 10 * static_cast<int>(next_)) at_[next_++] = threadSeconds();
    }
    void report() const {
        if (all_ == 0 || next_ <= 10) return;
        std::printf("first_tenth_s %.4f\nlast_tenth_s %.4f\n", at_[1] - at_[0], at_[10] - at_[9]);
    }

private:
    const int all_;
    std::array<double, 11> at_{threadSeconds()};
    std::size_t next_ = 1;
};

/// Runs the tool of HOME once, from the press to its end, while `look` is called again and again.
double runJob(
    AppDelegate& delegate, const std::function<void()>& look = [] {}) {
    QTimer answering;
    QObject::connect(&answering, &QTimer::timeout, answerAlerts);
    answering.start(1);
    const Stopwatch job;
    delegate.flashButton->click();
    QTimer ended;
    double seconds = 0;
    QObject::connect(&ended, &QTimer::timeout, [&] {
        look();
        if (delegate.flashProcess) return;
        seconds = job.seconds();
        leaveLoop();
    });
    ended.start(1);
    QApplication::exec();
    return seconds;
}

/// `lines`: how many the tool prints, or 0.
int measureJob(const LaunchContext& context, int lines) {
    const Window window(context);
    AppDelegate& delegate = *window.delegate;
    const LoopWatch watch(*delegate.logTextView->viewport());
    Tenths tenths(lines);
    const double seconds = runJob(delegate, [&] { tenths.look(delegate.logTextView->blockCount()); });
    std::printf("seconds %.6f\nlines %d\n", seconds, delegate.logTextView->blockCount());
    watch.report();
    tenths.report();
    return 0;
}

/// Many jobs in one window: the main thread's own time for the first tenth of them, and for the last.
int measureJobs(const LaunchContext& context, int jobs) {
    const Window window(context);
    Tenths tenths(jobs);
    for (int job = 1; job <= jobs; ++job) {
        (void)runJob(*window.delegate);
        tenths.look(job);
    }
    std::printf("lines %d\n", window.delegate->logTextView->blockCount());
    tenths.report();
    return 0;
}

int measurePieces(const LaunchContext& context, int count, int bytes, bool lineFeeds) {
    const Window window(context);
    const std::string piece(static_cast<std::size_t>(bytes), 'x');
    LoopWatch watch(*window.delegate->logTextView->viewport());
    const Stopwatch all;
    for (int n = 0; n < count; ++n) window.delegate->appendLog(piece, lineFeeds);
    window.mainQueue->post([] { leaveLoop(); });
    QApplication::exec();
    std::printf("seconds %.6f\n", all.seconds());
    watch.report();
    return 0;
}

int measureDirect(int lines) {
    QPlainTextEdit view;
    view.setReadOnly(true);
    view.setUndoRedoEnabled(false);
    view.setFixedSize(668, 210);
    view.show();
    QTimer::singleShot(300, [] { leaveLoop(); });
    QApplication::exec();

    const QString line = QString(60, QLatin1Char('x')) + QLatin1Char('\n');
    const Stopwatch all;
    for (int n = 0; n < lines; ++n) {
        QTextCursor end(view.document());
        end.movePosition(QTextCursor::End);
        end.insertText(line);
        view.verticalScrollBar()->setValue(view.verticalScrollBar()->maximum());
    }
    std::printf("seconds %.6f\n", all.seconds());
    return 0;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    QApplication application(argumentCount, arguments);
    qelmo::applyDarkControls(application);
    const auto number = [&](int index) { return index < argumentCount ? std::atoi(arguments[index]) : 0; };
    const LaunchContext context = LaunchContext::ofThisProcess(argumentCount, arguments);
    const std::string_view mode = argumentCount > 1 ? arguments[1] : "";
    if (mode == "refresh") return measureRefresh(context, number(2));
    if (mode == "job") return measureJob(context, number(2));
    if (mode == "jobs") return measureJobs(context, number(2));
    if (mode == "pieces") return measurePieces(context, number(2), number(3), argumentCount > 4);
    if (mode == "direct") return measureDirect(number(2));
    std::fputs("usage: window_benchmark refresh|job|jobs|pieces|direct ...\n", stderr);
    return 2;
}
