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

/// The toolkit ends the process when it finds no display, and later by a fatal message, or by `exit` when its
/// connection to the display breaks. Its warnings about the user's desktop help nobody who holds a device.
enum class Window { isNotThereYet, isThere, isGone };
std::atomic<Window> theWindow = Window::isNotThereYet;

std::mutex lastWordsMutex;
std::string lastWords;  ///< the toolkit's, since the window is there

[[noreturn]] void endWith(std::string_view sentence) {
    writeToStandardError(sentence);
    std::_Exit(EXIT_FAILURE);
}

[[noreturn]] void endBecauseOfLastWords() {
    const std::lock_guard lock(lastWordsMutex);
    const std::string reason = lastWords.empty() ? "its display has gone" : shownOnOneLine(lastWords);
    endWith("The window cannot go on: " + reason + "\n");
}

void handleToolkitsWords(QtMsgType type, const QMessageLogContext& /*context*/, const QString& text) {
    if (theWindow == Window::isNotThereYet && type == QtFatalMsg)
        endWith("The window cannot be opened: no display can be used. --self-test works without one.\n");
    // The toolkit still writes messages while the process exits, when `lastWords` is already destroyed.
    if (theWindow != Window::isThere) return;
    {
        const std::lock_guard lock(lastWordsMutex);
        lastWords = text.toStdString();
    }
    if (type == QtFatalMsg) endBecauseOfLastWords();
}

/// While it starts, the toolkit waits forever for a thread that it does not get, and aborts when descriptors
/// run out. Here either is an error that can be shown.
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
    // The toolkit gets a name, whatever the program was started as, and no arguments: it would take some for
    // itself, and one of them could end the program.
    char name[] = "QelmoFlasher";
    char* arguments[] = {name, nullptr};
    int argumentCount = 1;
    // A native alert interprets markup in its texts.
    QApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    // With shared memory, an X server hands over a descriptor for every new window, and when none is left an
    // alert waits for it forever. The flashing tool gets the environment of the start.
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
