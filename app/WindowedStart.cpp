#include <fcntl.h>
#include <unistd.h>

#include <QApplication>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/SystemError.h"
#include "platform/ThisProcess.h"
#include "platform/Utf8.h"
#include "ui/AppDelegate.h"
#include "ui/DarkControls.h"
#include "ui/QtMainQueue.h"
#include "ui/WithoutSharedMemory.h"

namespace qelmo {

namespace {

/// The toolkit ends the process when it finds no display, after it has asked this handler to show why. Its
/// own words, and its warnings about the user's desktop, help nobody who holds a device.
void sayThatThereIsNoDisplay(QtMsgType type, const QMessageLogContext& /*context*/, const QString& /*text*/) {
    if (type != QtFatalMsg) return;
    writeToStandardError(
        "The window cannot be opened: no display can be used. --self-test works without one.\n");
    std::_Exit(EXIT_FAILURE);
}

/// Ends the process when the toolkit does so while there is a window: by a fatal message, or by `exit` when
/// its connection to the display breaks.
class WindowsEnd {
public:
    WindowsEnd() {
        (void)std::atexit([] {
            if (thereIsAWindow_) sayWhy();
        });
        qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext& /*context*/, const QString& text) {
                {
                    const std::lock_guard lock(mutex_);
                    reason_ = text.toStdString();
                }
                if (type == QtFatalMsg) sayWhy();
            });
        thereIsAWindow_ = true;
    }
    WindowsEnd(const WindowsEnd&) = delete;
    WindowsEnd& operator=(const WindowsEnd&) = delete;
    ~WindowsEnd() {
        // The toolkit still writes messages while the process exits, when `reason_` is already destroyed.
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        thereIsAWindow_ = false;
    }

private:
    [[noreturn]] static void sayWhy() {
        const std::lock_guard lock(mutex_);
        const std::string reason = reason_.empty() ? "its display has gone" : shownOnOneLine(reason_);
        writeToStandardError("The window cannot go on: " + reason + "\n");
        std::_Exit(EXIT_FAILURE);
    }

    static inline std::atomic<bool> thereIsAWindow_ = false;
    static inline std::mutex mutex_;
    static inline std::string reason_;  ///< the toolkit's last words
};

/// The toolkit waits forever for a thread that it does not get, and aborts when descriptors run out while it
/// starts. Here either is an error that can be shown.
void requireThreadAndDescriptors() {
    constexpr const char* what = "the window";
    try {
        std::thread([] {}).join();
    } catch (const std::system_error& error) {
        throwSystemError(error.code().value(), "start", what);
    }
    std::array<FileDescriptor, 16> reserve;
    for (FileDescriptor& one : reserve) {
        one = FileDescriptor(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
        if (!one.isOpen()) throwSystemError(errno, "start", what);
    }
}

int windowedStart(const std::vector<std::string>& environment) {
    requireThreadAndDescriptors();
    qInstallMessageHandler(sayThatThereIsNoDisplay);
    // The toolkit gets a name, whatever the program was started as, and no arguments: it would take some for
    // itself, and one of them could end the program.
    char name[] = "QelmoFlasher";
    char* arguments[] = {name, nullptr};
    int argumentCount = 1;
    // A native alert takes markup in its texts for markup.
    QApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    std::optional<WithoutSharedMemory> connecting(std::in_place);
    QApplication application(argumentCount, arguments);
    connecting.reset();
    std::optional<WindowsEnd> unexpected(std::in_place);
    applyDarkControls(application);

    const auto mainQueue = std::make_shared<QtMainQueue>();
    auto delegate = std::make_shared<AppDelegate>(mainQueue, environment);
    QApplication::setQuitOnLastWindowClosed(AppDelegate::applicationShouldTerminateAfterLastWindowClosed());
    mainQueue->post([weak = std::weak_ptr(delegate)] { weak.lock()->applicationDidFinishLaunching(); });

    const int status = QApplication::exec();
    unexpected.reset();
    delegate.reset();
    mainQueue->close();
    mainQueue->rethrowFailure();
    return status;
}

}  // namespace

}  // namespace qelmo

/// The library's one entry: runs the window until the user quits; returns the exit status of the process.
extern "C" Q_DECL_EXPORT int qelmoWindowedStart(const std::vector<std::string>& environment) {
    return qelmo::windowedStart(environment);
}
