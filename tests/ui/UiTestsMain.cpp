#include <gtest/gtest.h>

#include <QApplication>
#include <optional>

#include "tests/ui/BootPort.h"
#include "ui/DarkControls.h"
#include "ui/WithoutSharedMemory.h"

int main(int argumentCount, char** arguments) {
    testing::InitGoogleTest(&argumentCount, arguments);
    if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
    if (!qelmo::devIsPrivate()) return 1;
    std::optional<qelmo::WithoutSharedMemory> connecting(std::in_place);
    QApplication application(argumentCount, arguments);
    connecting.reset();
    qelmo::applyDarkControls(application);
    // A test closes windows again and again; only the tests about quitting let that end the loop.
    QApplication::setQuitOnLastWindowClosed(false);
    return RUN_ALL_TESTS();
}
