#include "app/WindowCheck.h"

#include <QApplication>
#include <QWidget>
#include <cstdlib>
#include <span>
#include <system_error>

#include "platform/AtomicWrite.h"
#include "platform/ThisProcess.h"
#include "release/ReleaseTexts.h"
#include "ui/ActionButton.h"
#include "ui/AppDelegate.h"
#include "ui/DesktopLook.h"

namespace qelmo {

namespace {

bool hasIconResource(const AppDelegate& delegate) {
    return applicationIconURL(delegate.context.bundleURL).has_value();
}

}  // namespace

bool passesWindowSelfTest(const AppDelegate& delegate) {
    const QWidget* const window = delegate.window.get();
    return window->isVisible() && window->windowTitle() == QLatin1String("QELMO Varnox Flasher") &&
           QApplication::topLevelWidgets().contains(window) && hasIconResource(delegate) &&
           hasApplicationIcon() && delegate.resources.has_value() &&
           delegate.refreshButton->title() == QLatin1String("REFRESH BUILD") &&
           delegate.refreshButton->action() == &AppDelegate::refreshBuildAndPorts &&
           delegate.flashButton->title().toStdString() ==
               verifiedFlashButtonTitle(delegate.resources->manifest);
}

std::string windowSelfTestReport(const AppDelegate& delegate, bool passed) {
    return std::string("window_self_test=") + (passed ? "OK" : "FAILED") +
           "\nwindow_visible=" + (delegate.window->isVisible() ? "true" : "false") +
           "\nwindow_title=" + delegate.window->windowTitle().toStdString() +
           "\nicon_resource=" + (hasIconResource(delegate) ? "OK" : "MISSING") +
           "\nrefresh_button_title=" + delegate.refreshButton->title().toStdString() +
           "\nflash_button_title=" + delegate.flashButton->title().toStdString() + "\n";
}

void checkWindow(const std::shared_ptr<AppDelegate>& delegate) {
    if (!delegate) {
        writeToStandardError("window_self_test=FAILED delegate released\n");
        QCoreApplication::exit(EXIT_FAILURE);
        return;
    }
    delegate->refreshBuildAndPorts();
    const bool passed = passesWindowSelfTest(*delegate);
    const std::string report = windowSelfTestReport(*delegate, passed);
    try {
        writeFileAtomically(delegate->context.windowReportFile, std::as_bytes(std::span(report)));
    } catch (const std::system_error&) {
        // Ignored: standard output and the status carry the verdict, too.
    }
    try {
        writeToStandardOutput(report);
    } catch (const std::system_error& error) {
        // The status still carries the verdict.
        writeToStandardError(std::string("The report cannot be printed: ") + error.what() + "\n");
    }
    QCoreApplication::exit(passed ? EXIT_SUCCESS : EXIT_FAILURE);
}

}  // namespace qelmo
