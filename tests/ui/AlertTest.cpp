#include "ui/Alert.h"

#include <QApplication>
#include <QLabel>
#include <QScreen>
#include <QTest>
#include <QWindow>

#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"

namespace qelmo {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class ErrorAlert : public WindowTest {
protected:
    ErrorAlert() { launch(); }

    const Alert question_{Alert::Style::critical, "Go on?", "More about it.", {"ERASE + FLASH", "Cancel"}};

    int response(const Alert& alert, const AlertAction& action) const {
        const AlertAnswer answer(action);
        return alert.runModal(delegate->window.get());
    }
};

TEST_F(ErrorAlert, ShowsTheMessageAndReturnsWhenItIsDismissed) {
    const AlertAnswer answer(click("OK"));
    delegate->showError("x");
    EXPECT_TRUE(answer.hasEnded());
    EXPECT_EQ(answer.alert().messageText, "QELMO Flasher stopped");
    EXPECT_EQ(answer.alert().informativeText, "x");
    EXPECT_EQ(answer.alert().icon, QMessageBox::Critical);
    EXPECT_THAT(answer.alert().buttons, ElementsAre("OK"));
    EXPECT_EQ(answer.alert().defaultButton, "OK");
}

TEST_F(ErrorAlert, AnswersReturnAndEscapeWithItsOneButton) {
    const Alert notice{Alert::Style::informational, "Done", "", {"Done"}};
    EXPECT_EQ(response(notice, pressKey(Qt::Key_Return)), 1000);
    EXPECT_EQ(response(notice, pressKey(Qt::Key_Escape)), 1000);
    EXPECT_EQ(response(notice, click("Done")), 1000);
}

using TwoButtons = ErrorAlert;

TEST_F(TwoButtons, StandInTheirOrderWithTheFirstAsDefault) {
    const AlertAnswer answer(click("Cancel"));
    EXPECT_EQ(question_.runModal(delegate->window.get()), 1001);
    EXPECT_THAT(answer.alert().buttons, ElementsAre("ERASE + FLASH", "Cancel"));
    EXPECT_EQ(answer.alert().defaultButton, "ERASE + FLASH");
    EXPECT_EQ(answer.alert().focusedButton, "ERASE + FLASH");
}

TEST_F(TwoButtons, AnswerTheirKeys) {
    EXPECT_EQ(response(question_, pressKey(Qt::Key_Return)), 1000);
    EXPECT_EQ(response(question_, pressKey(Qt::Key_Enter)), 1000);
    EXPECT_EQ(response(question_, pressKey(Qt::Key_Escape)), 1001);
}

TEST_F(TwoButtons, AnswerTheirClicks) {
    EXPECT_EQ(response(question_, click("ERASE + FLASH")), 1000);
    EXPECT_EQ(response(question_, click("Cancel")), 1001);
}

TEST_F(TwoButtons, TakeClosingAsTheLastButton) {
    EXPECT_EQ(response(question_, closeAlert()), 1001);
}

TEST_F(TwoButtons, AreNotPressedWhenTheAlertEndsWithoutAnAnswer) {
    EXPECT_EQ(response(question_, endWithoutAnswer()), 0);
}

using AlertTexts = ErrorAlert;

TEST_F(AlertTexts, AreShownAsTheyStand) {
    const std::string text = "  <b>a</b> & <i>b</i>\nR&D &amp;";
    const AlertAction look = [&text](QMessageBox& box) {
        for (const char* name : {"qt_msgbox_label", "qt_msgbox_informativelabel"}) {
            const auto* label = box.findChild<QLabel*>(QLatin1String(name));
            ASSERT_NE(label, nullptr) << name;
            EXPECT_EQ(label->textFormat(), Qt::PlainText) << name;
            EXPECT_EQ(textOf(label), text) << name;
            EXPECT_EQ(label->buddy(), nullptr) << name;
        }
    };
    EXPECT_EQ(response({Alert::Style::critical, text, text, {"OK"}}, inOrder(look, click("OK"))), 1000);
}

TEST_F(AlertTexts, AreSetInMonospacedType) {
    const AlertAction look = [](QMessageBox& box) {
        for (const char* name : {"qt_msgbox_label", "qt_msgbox_informativelabel"})
            EXPECT_TRUE(QFontInfo(box.findChild<QLabel*>(QLatin1String(name))->font()).fixedPitch()) << name;
    };
    EXPECT_EQ(response(question_, inOrder(look, click("Cancel"))), 1001);
}

/// Fails unless the whole alert is on the screen, with its buttons.
AlertAction expectOnScreen() {
    return [](QMessageBox& box) {
        EXPECT_TRUE(box.screen()->availableGeometry().contains(box.windowHandle()->frameGeometry()));
        for (const auto* button : box.buttons())
            EXPECT_TRUE(box.rect().contains(QRect(button->mapTo(&box, QPoint()), button->size())));
    };
}

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int count = 0; count < times; ++count) all += text;
    return all;
}

TEST_F(AlertTexts, LeaveTheButtonsOnTheScreenWhateverTheirLength) {
    for (const std::string& text : {repeated("line\n", 300), std::string(2'000'000, 'x'),
                                    repeated("word ", 400'000), repeated("\u0301", 300'000)}) {
        const AlertAnswer answer(inOrder(expectOnScreen(), click("Cancel")));
        EXPECT_EQ((Alert{Alert::Style::critical, text, text, {"ERASE + FLASH", "Cancel"}})
                      .runModal(delegate->window.get()),
                  1001);
        EXPECT_THAT(answer.alert().messageText, testing::EndsWith("…"));
        EXPECT_THAT(answer.alert().informativeText, testing::EndsWith("…"));
    }
}

TEST_F(AlertTexts, AreBrokenInsideAWordThatIsTooWide) {
    const std::string path = "/" + std::string(200, 'x') + ".bin";
    const AlertAnswer answer(click("OK"));
    delegate->showError("open " + path + ": No such file or directory");
    std::string shown = answer.alert().informativeText;
    EXPECT_THAT(shown, testing::HasSubstr("xx\nxx"));
    std::erase(shown, '\n');
    EXPECT_THAT(shown, HasSubstr(path));
    EXPECT_THAT(shown, testing::EndsWith("No such file or directory"));
}

TEST_F(AlertTexts, AreLeftToTheLabelWhereItShowsThemWhole) {
    const std::string text = "Device: /dev/x\n\n" + repeated("some words ", 30) + "end.";
    const AlertAnswer answer(click("OK"));
    delegate->showError(text);
    EXPECT_EQ(answer.alert().informativeText, text);
}

using OpenAlert = ErrorAlert;

TEST_F(OpenAlert, HoldsClicksOnTheWindowBack) {
    takeLog();
    const AlertAction clickBehind = [this](QMessageBox&) {
        QTest::mouseClick(delegate->window->windowHandle(), Qt::LeftButton, {},
                          delegate->refreshButton->mapTo(delegate->window.get(), QPoint(10, 10)));
    };
    EXPECT_EQ(response(question_, inOrder(clickBehind, click("Cancel"))), 1001);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(OpenAlert, IsDarkLikeTheWindow) {
    const AlertAction look = [](QMessageBox& box) {
        EXPECT_EQ(box.windowModality(), Qt::ApplicationModal);
        EXPECT_LT(box.palette().color(QPalette::Window).lightness(), 60);
        EXPECT_GT(box.palette().color(QPalette::WindowText).lightness(), 200);
        const QImage icon = box.iconPixmap().toImage();
        EXPECT_EQ(hex(icon.pixelColor(icon.width() / 6, icon.height() / 2)), "#ff4d4a");
    };
    EXPECT_EQ(response(question_, inOrder(look, click("Cancel"))), 1001);
}

}  // namespace

}  // namespace qelmo
