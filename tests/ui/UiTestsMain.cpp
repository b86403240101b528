#include <gtest/gtest.h>

#include <QApplication>
#include <cstdio>
#include <optional>

#include "tests/ui/BootPort.h"
#include "ui/DarkControls.h"
#include "ui/WithoutSharedMemory.h"

int main(int argumentCount, char** arguments) {
    testing::InitGoogleTest(&argumentCount, arguments);
    if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
    if (const std::string reason = qelmo::reasonAgainstThisDev(); !reason.empty()) {
        std::fprintf(stderr, "ui_tests: %s; run it through tests/device/private-dev\n", reason.c_str());
        return 1;
    }
    std::optional<qelmo::WithoutSharedMemory> connecting(std::in_place);
    QApplication application(argumentCount, arguments);
    connecting.reset();
    qelmo::applyDarkControls(application);
    // A test closes windows again and again; only the tests about quitting let that end the loop.
    QApplication::setQuitOnLastWindowClosed(false);
    return RUN_ALL_TESTS();
}
