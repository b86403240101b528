// The reference for the start: the window with its controls and texts, which validates nothing and has no
// icon.

#include <QApplication>
#include <QWidget>
#include <memory>

#include "ui/AppDelegate.h"
#include "ui/DesktopLook.h"
#include "ui/QtMainQueue.h"

int main(int argumentCount, char** arguments) {
    using namespace qelmo;
    QApplication application(argumentCount, arguments);
    applyDarkControls(application);
    const auto delegate =
        std::make_shared<AppDelegate>(std::make_shared<QtMainQueue>(), LaunchContext(), nullptr);
    delegate->buildWindow();
    delegate->window->show();
    return QApplication::exec();
}
