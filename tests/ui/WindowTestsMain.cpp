#include <gtest/gtest.h>

#include <QApplication>

#include "ui/DesktopLook.h"

int main(int argumentCount, char** arguments) {
    testing::InitGoogleTest(&argumentCount, arguments);
    if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
    QApplication application(argumentCount, arguments);
    qelmo::applyDarkControls(application);
    // Tests close windows repeatedly. That must not end the loop.
    QApplication::setQuitOnLastWindowClosed(false);
    const int status = RUN_ALL_TESTS();
    // ctest sees the program as one test, and this status as a skipped one.
    return status == 0 && testing::UnitTest::GetInstance()->skipped_test_count() > 0 ? 77 : status;
}
