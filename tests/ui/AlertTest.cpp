#include "ui/Alert.h"

#include <QApplication>
#include <QLabel>
#include <QScreen>
#include <QTest>
#include <QWindow>

#include "tests/ui/AlertAnswer.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"

namespace qelmo {

namespace {

constexpr auto labelNames = {"qt_msgbox_label", "qt_msgbox_informativelabel"};

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int count = 0; count < times; ++count) all += text;
    return all;
}

class AlertTest : public WindowTest {
protected:
    AlertTest() { launch(); }

    int response(const Alert& alert, const AlertAction& action) const {
        const AlertAnswer answer(action);
        return alert.runModal(delegate->window.get());
    }
};

TEST_F(AlertTest, ShowsItsTextsUnchangedInAMonospacedFontOnADarkBackground) {
    const std::string text = "  <b>a</b> & <i>b</i>\nR&D &amp;";
    const AlertAction look = [&text](QMessageBox& box) {
        for (const char* name : labelNames) {
            const auto* label = box.findChild<QLabel*>(QLatin1String(name));
            ASSERT_NE(label, nullptr) << name;
            EXPECT_EQ(label->textFormat(), Qt::PlainText) << name;
            EXPECT_EQ(textOf(label), text) << name;
            EXPECT_EQ(label->buddy(), nullptr) << name;
            EXPECT_TRUE(QFontInfo(label->font()).fixedPitch()) << name;
            const bool isMessage = label == box.findChild<QLabel*>(QLatin1String("qt_msgbox_label"));
            EXPECT_EQ(label->font().weight(), isMessage ? QFont::Bold : QFont::Normal);
            EXPECT_EQ(label->font().pixelSize(), isMessage ? 13 : 12);
        }
        EXPECT_EQ(box.windowModality(), Qt::ApplicationModal);
        EXPECT_EQ(box.windowTitle(), QStringLiteral("QELMO Varnox Flasher"));
        EXPECT_LT(box.palette().color(QPalette::Window).lightness(), 60);
        EXPECT_GT(box.palette().color(QPalette::WindowText).lightness(), 200);
        const QImage icon = box.iconPixmap().toImage();
        EXPECT_EQ(box.iconPixmap().deviceIndependentSize(), QSizeF(48, 48));
        EXPECT_EQ(hex(icon.pixelColor(icon.width() / 6, icon.height() / 2)), "#ff4d4a");
    };
    EXPECT_EQ(response({Alert::Style::critical, text, text, {"OK"}}, inOrder(look, click("OK"))), 1000);
}

AlertAction expectOnScreen() {
    return [](QMessageBox& box) {
        EXPECT_TRUE(box.screen()->availableGeometry().contains(box.windowHandle()->frameGeometry()));
        for (const auto* button : box.buttons())
            EXPECT_TRUE(box.rect().contains(QRect(button->mapTo(&box, QPoint()), button->size())));
    };
}

TEST_F(AlertTest, KeepsItsButtonsOnTheScreenHoweverLongItsTextsAre) {
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

TEST_F(AlertTest, BreaksAWordThatIsTooWide) {
    const std::string path = "/" + std::string(200, 'x') + ".bin";
    const AlertAction look = [](QMessageBox& box) {
        const auto* const label = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel"));
        EXPECT_EQ(label->contentsRect().width(), 440);
    };
    const AlertAnswer answer(inOrder(look, click("OK")));
    delegate->showError("open " + path + ": No such file or directory");
    std::string shown = answer.alert().informativeText;
    EXPECT_THAT(shown, testing::HasSubstr("xx\nxx"));
    std::erase(shown, '\n');
    EXPECT_THAT(shown, testing::HasSubstr(path));
    EXPECT_THAT(shown, testing::EndsWith("No such file or directory"));
}

using ActionButtonTitle = AlertTest;

TEST_F(ActionButtonTitle, IsCutOnTheButtonWhenFarTooLongButReportedInFull) {
    const auto shown = [this](const std::string& title) {
        delegate->flashButton->setTitle(QString::fromStdString(title));
        EXPECT_EQ(delegate->flashButton->title().toStdString(), title);
        EXPECT_EQ(delegate->flashButton->accessibleName().toStdString(), title);
        return delegate->flashButton->text().toStdString();
    };
    EXPECT_EQ(shown(std::string(400, 'x')), std::string(400, 'x'));
    EXPECT_EQ(shown(std::string(1'000'000, 'x')), std::string(400, 'x') + "…");
    EXPECT_EQ(shown("FLASH VERIFIED R&D"), "FLASH VERIFIED R&&D");
    EXPECT_EQ(shown(std::string(399, 'x') + "&&"), std::string(399, 'x') + "&&…");
}

}  // namespace
}  // namespace qelmo
