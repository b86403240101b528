#include "app/WindowSelfTest.h"

#include <QApplication>
#include <QWidget>
#include <chrono>
#include <cstdlib>
#include <span>
#include <system_error>

#include "platform/AtomicWrite.h"
#include "platform/MainBundle.h"
#include "platform/ThisProcess.h"
#include "release/FlashButtonTitle.h"
#include "ui/ActionButton.h"
#include "ui/AppDelegate.h"
#include "ui/ApplicationIcon.h"

namespace qelmo {

namespace {

constexpr std::chrono::milliseconds checkDelay{250};

bool hasIconResource() {
    return MainBundle::urlForApplicationIcon().has_value();
}

bool showsVerifiedTitle(const AppDelegate& delegate) {
    return delegate.flashButton->title().toStdString() ==
           verifiedFlashButtonTitle(delegate.resources->manifest);
}

void writeReportFile(const std::string& report) {
    try {
        writeFileAtomically(windowSelfTestReportPath, std::as_bytes(std::span(report)));
    } catch (const std::system_error&) {
        // The file is a convenience; standard output and the status carry the verdict.
    }
}

}  // namespace

bool passesWindowSelfTest(const AppDelegate& delegate) {
    const QWidget* const window = delegate.window.get();
    return window->isVisible() && window->windowTitle() == QLatin1String("QELMO Varnox Flasher") &&
           QApplication::topLevelWidgets().contains(window) && hasIconResource() && hasApplicationIcon() &&
           delegate.resources.has_value() &&
           delegate.refreshButton->title() == QLatin1String("REFRESH BUILD") &&
           delegate.refreshButton->action() == &AppDelegate::refreshBuildAndPorts &&
           showsVerifiedTitle(delegate);
}

std::string windowSelfTestReport(const AppDelegate& delegate, bool passed) {
    return std::string("window_self_test=") + (passed ? "OK" : "FAILED") +
           "\nwindow_visible=" + (delegate.window->isVisible() ? "true" : "false") +
           "\nwindow_title=" + delegate.window->windowTitle().toStdString() +
           "\nicon_resource=" + (hasIconResource() ? "OK" : "MISSING") +
           "\nrefresh_button_title=" + delegate.refreshButton->title().toStdString() +
           "\nflash_button_title=" + delegate.flashButton->title().toStdString() + "\n";
}

void AppDelegate::runWindowSelfTestIfRequested() {
    if (!hasProcessArgument("--window-self-test")) return;
    mainQueue_->postAfter(checkDelay, [weak = weak_from_this()] { checkWindow(weak); });
}

void AppDelegate::checkWindow(const Weak& weak) {
    const auto delegate = weak.lock();
    if (!delegate) {
        writeToStandardError("window_self_test=FAILED delegate released\n");
        QCoreApplication::exit(EXIT_FAILURE);
        return;
    }
    delegate->refreshBuildAndPorts();
    const bool passed = passesWindowSelfTest(*delegate);
    const std::string report = windowSelfTestReport(*delegate, passed);
    writeReportFile(report);
    try {
        writeToStandardOutput(report);
    } catch (const std::system_error& error) {
        // The status still tells the verdict.
        writeToStandardError(std::string("The report cannot be printed: ") + error.what() + "\n");
    }
    QCoreApplication::exit(passed ? EXIT_SUCCESS : EXIT_FAILURE);
}

}  // namespace qelmo
