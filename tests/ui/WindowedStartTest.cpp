// The windowed start, tested from inside: this program creates no application of its own.

#include <gtest/gtest.h>

#include <QApplication>
#include <QPalette>
#include <QTimer>

#include "platform/LaunchContext.h"

extern "C" int qelmoWindowedStart(const qelmo::LaunchContext& context);

namespace qelmo {

namespace {

void lookAtTheWindow() {
    qWarning("a word of the toolkit while it starts");
    auto* const timer = new QTimer(QCoreApplication::instance());
    QObject::connect(timer, &QTimer::timeout, timer, [timer] {
        if (QApplication::activeWindow() == nullptr) return;
        timer->stop();
        EXPECT_LT(QApplication::palette().color(QPalette::Window).lightness(), 60);
        EXPECT_GT(QApplication::palette().color(QPalette::ButtonText).lightness(), 200);
        EXPECT_TRUE(QApplication::testAttribute(Qt::AA_DontUseNativeDialogs));
        qWarning("a word of the toolkit about the desktop");
        QApplication::quit();
    });
    timer->start(2);
}
Q_COREAPP_STARTUP_FUNCTION(lookAtTheWindow)

TEST(WindowedStart, UsesDarkControlsAndItsOwnAlertsAndHidesTheToolkitsMessages) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(qelmoWindowedStart({}), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace qelmo
