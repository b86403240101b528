#include <fcntl.h>
#include <unistd.h>

#include <QApplication>
#include <QScopeGuard>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include "app/WindowCheck.h"
#include "platform/FileDescriptor.h"
#include "platform/LaunchContext.h"
#include "platform/SystemError.h"
#include "platform/ThisProcess.h"
#include "platform/Utf8.h"
#include "ui/AppDelegate.h"
#include "ui/DesktopLook.h"
#include "ui/QtMainQueue.h"

namespace qelmo {

namespace {

/// Qt ends the process if it finds no display, later on a fatal message, and through `exit` if the connection
/// to the display breaks. Its warnings about the desktop do not help the user and are not shown.
enum class Window { isNotThereYet, isThere, isGone };
std::atomic<Window> theWindow = Window::isNotThereYet;

std::mutex lastWordsMutex;
std::string lastWords;  ///< Qt's last message while the window exists

[[noreturn]] void endWith(std::string_view sentence) {
    writeToStandardError(sentence);
    std::_Exit(EXIT_FAILURE);
}

[[noreturn]] void endBecauseOfLastWords() {
    const std::lock_guard lock(lastWordsMutex);
    const std::string reason = lastWords.empty() ? "its display was lost" : shownOnOneLine(lastWords);
    endWith("The window closed because of an error: " + reason + "\n");
}

void handleToolkitsWords(QtMsgType type, const QMessageLogContext& /*context*/, const QString& text) {
    if (theWindow == Window::isNotThereYet && type == QtFatalMsg)
        endWith("No display is available. Run with --self-test to check the release without a window.\n");
    // Qt still writes messages while the process exits, when `lastWords` has already been destroyed.
    if (theWindow != Window::isThere) return;
    {
        const std::lock_guard lock(lastWordsMutex);
        lastWords = text.toStdString();
    }
    if (type == QtFatalMsg) endBecauseOfLastWords();
}

/// While Qt starts, it waits forever for a thread that it cannot get, and aborts if descriptors run out. Here
/// both become errors that can be shown.
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

int windowedStart(const LaunchContext& context) {
    requireThreadAndDescriptors();
    qInstallMessageHandler(handleToolkitsWords);
    // Qt gets a fixed name and no arguments: it would interpret some, and one of them could end the program.
    char name[] = "QelmoFlasher";
    char* arguments[] = {name, nullptr};
    int argumentCount = 1;
    // Native alerts interpret markup in their texts.
    QApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    // With shared memory, the X server passes a descriptor for every new window, and an alert would wait
    // forever when none is left. The flashing tool still gets the environment that was read at start-up.
    qputenv("QT_XCB_NO_MITSHM", "1");
    QApplication application(argumentCount, arguments);
    (void)std::atexit([] {
        if (theWindow == Window::isThere) endBecauseOfLastWords();
    });
    theWindow = Window::isThere;
    const auto goneInAnyCase = qScopeGuard([] { theWindow = Window::isGone; });
    applyDarkControls(application);

    const auto mainQueue = std::make_shared<QtMainQueue>();
    auto delegate = std::make_shared<AppDelegate>(mainQueue, context, checkWindow);
    QApplication::setQuitOnLastWindowClosed(AppDelegate::applicationShouldTerminateAfterLastWindowClosed());
    mainQueue->post([weak = std::weak_ptr(delegate)] { weak.lock()->applicationDidFinishLaunching(); });

    const int status = QApplication::exec();
    theWindow = Window::isGone;
    delegate.reset();
    mainQueue->close();
    mainQueue->rethrowFailure();
    return status;
}

}  // namespace

}  // namespace qelmo

/// The library's one entry: runs the window until the user quits. Returns the exit status of the process.
extern "C" Q_DECL_EXPORT int qelmoWindowedStart(const qelmo::LaunchContext& context) {
    return qelmo::windowedStart(context);
}
