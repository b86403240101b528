// Measures the real window from inside. The release is in the program's own bundle, the tool below HOME.
//   window_benchmark bare              the reference for the start: the window without validation and icon
// Print one line of two numbers per round, in nanoseconds: what is measured, then its reference.
//   window_benchmark load ROUNDS       a load of the release, and only the digest of the same bytes in memory
//   window_benchmark refresh ROUNDS    how long the refresh button blocks, and one load
// Print "name value" lines:
//   window_benchmark jobs COUNT LINES  COUNT jobs of HOME's tool, which prints LINES lines
//   window_benchmark pieces COUNT BYTES [lines]    text posted in pieces, with or without line feeds
//   window_benchmark direct LINES      the reference for a job: a text view fed without a queue and a tool

#include <QApplication>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTextCursor>
#include <QTimer>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string_view>

#include "platform/FileReading.h"
#include "platform/LaunchContext.h"
#include "platform/Sha256.h"
#include "release/FlasherResources.h"
#include "ui/ActionButton.h"
#include "ui/AppDelegate.h"
#include "ui/DesktopLook.h"
#include "ui/LogTextView.h"
#include "ui/QtMainQueue.h"

namespace {

using namespace qelmo;

/// quit() would also close the window.
void leaveLoop() {
    QApplication::exit();
}

/// The time since its creation.
class Stopwatch {
public:
    [[nodiscard]] long long nanoseconds() const {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - start_)
            .count();
    }
    [[nodiscard]] double seconds() const { return static_cast<double>(nanoseconds()) * 1e-9; }

private:
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

template <typename Action>
long long nanosecondsOf(Action action) {
    const Stopwatch watch;
    action();
    return watch.nanoseconds();
}

double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Watches the event loop from inside: how long it was blocked, and how often the log was painted.
class LoopWatch : public QObject {
public:
    /// `beats`: whether the gaps are measured, which costs time itself.
    explicit LoopWatch(QWidget& painted, bool beats = true) {
        painted.installEventFilter(this);
        connect(&beat_, &QTimer::timeout, this, [this] { turn(); });
        if (beats) beat_.start(1);
    }

    void report() const {
        std::printf("seconds %.6f\n", all_.seconds());
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
        // When this has run, everything that was posted at the start is done.
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

int showBareWindow() {
    const auto delegate =
        std::make_shared<AppDelegate>(std::make_shared<QtMainQueue>(), LaunchContext(), nullptr);
    delegate->buildWindow();
    delegate->window->show();
    return QApplication::exec();
}

int measureLoad(const LaunchContext& context, int rounds) {
    const auto load = [&] { return FlasherResources::load(context.bundleURL, context.homeFolder); };
    const FileBytes image = RegularFile(load().firmwareURL).readAll(std::uint64_t{1} << 30);
    for (; rounds > 0; --rounds) {
        const auto loadTime = nanosecondsOf([&] { (void)load(); });
        std::printf("%lld %lld\n", loadTime, nanosecondsOf([&] { (void)sha256(image.span()); }));
    }
    return 0;
}

int measureRefresh(const LaunchContext& context, int rounds) {
    const Window window(context);
    for (; rounds > 0; --rounds) {
        const auto refreshTime = nanosecondsOf([&] { window.delegate->refreshButton->click(); });
        const auto loadTime =
            nanosecondsOf([&] { (void)FlasherResources::load(context.bundleURL, context.homeFolder); });
        std::printf("%lld %lld\n", refreshTime, loadTime);
    }
    return window.delegate->resources ? 0 : 1;
}

/// The main thread's CPU time for each tenth of what is counted.
class Tenths {
public:
    explicit Tenths(int all) : all_(all) {}

    void look(int count) {
        while (next_ <= 10 && count >= all_ / 10 * static_cast<int>(next_)) at_[next_++] = threadSeconds();
    }
    void report() const {
        if (next_ <= 10) return;
        std::printf("first_tenth_s %.4f\nlast_tenth_s %.4f\n", at_[1] - at_[0], at_[10] - at_[9]);
    }

private:
    const int all_;
    std::array<double, 11> at_{threadSeconds()};
    std::size_t next_ = 1;
};

/// Runs the tool of HOME once, from the press to its end, and calls `look` repeatedly meanwhile. Presses the
/// default button of each alert.
void runJob(AppDelegate& delegate, const std::function<void()>& look) {
    QTimer answering;
    QObject::connect(&answering, &QTimer::timeout, [] {
        if (auto* const box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget()))
            box->defaultButton()->click();
    });
    answering.start(5);
    delegate.flashButton->click();
    QTimer looking;
    QObject::connect(&looking, &QTimer::timeout, [&] {
        look();
        if (!delegate.flashProcess) leaveLoop();
    });
    looking.start(5);
    QApplication::exec();
}

int measureJobs(const LaunchContext& context, int jobs, int lines) {
    const Window window(context);
    const QPlainTextEdit& log = *window.delegate->logTextView;
    const LoopWatch watch(*log.viewport(), lines > 0);
    Tenths tenths(jobs * lines);
    for (int job = 0; job < jobs; ++job) runJob(*window.delegate, [&] { tenths.look(log.blockCount()); });
    watch.report();
    tenths.report();
    std::printf("lines %d\n", log.blockCount());
    return 0;
}

int measurePieces(const LaunchContext& context, int count, int bytes, bool lineFeeds) {
    const Window window(context);
    const std::string piece(static_cast<std::size_t>(bytes), 'x');
    const LoopWatch watch(*window.delegate->logTextView->viewport());
    for (int n = 0; n < count; ++n) window.delegate->appendLog(piece, lineFeeds);
    window.mainQueue->post([] { leaveLoop(); });
    QApplication::exec();
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
    const LoopWatch watch(view);
    for (int n = 0; n < lines; ++n) {
        QTextCursor end(view.document());
        end.movePosition(QTextCursor::End);
        end.insertText(line);
        view.verticalScrollBar()->setValue(view.verticalScrollBar()->maximum());
    }
    watch.report();
    return 0;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    QApplication application(argumentCount, arguments);
    qelmo::applyDarkControls(application);
    const auto number = [&](int index) { return index < argumentCount ? std::atoi(arguments[index]) : 0; };
    const LaunchContext context = LaunchContext::ofThisProcess(argumentCount, arguments);
    const std::string_view mode = argumentCount > 1 ? arguments[1] : "";
    if (mode == "bare") return showBareWindow();
    if (mode == "load") return measureLoad(context, number(2));
    if (mode == "refresh") return measureRefresh(context, number(2));
    if (mode == "jobs") return measureJobs(context, number(2), number(3));
    if (mode == "pieces") return measurePieces(context, number(2), number(3), argumentCount > 4);
    if (mode == "direct") return measureDirect(number(2));
    return 2;
}
