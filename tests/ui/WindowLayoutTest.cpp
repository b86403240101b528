#include <QApplication>
#include <QComboBox>
#include <QLayout>
#include <QProcess>
#include <QProxyStyle>
#include <QScreen>
#include <QWindow>

#include "tests/ui/WindowRows.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/DesktopLook.h"
#include "ui/LogTextView.h"
#include "ui/TextLabel.h"
#include "ui/WindowLayout.h"

namespace qelmo {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// The window as it was built and shown, before it is filled.
class WindowLayout : public WindowTest {
protected:
    WindowLayout() { show(); }

    void show() const {
        delegate->buildWindow();
        window().show();
        EXPECT_TRUE(waitUntil([this] { return window().windowHandle()->isExposed(); }));
    }
    QWidget& window() const { return *delegate->window; }
};

TEST_F(WindowLayout, BeginsInTheMiddleOfTheScreen) {
    const QPoint distance =
        window().windowHandle()->frameGeometry().center() - window().screen()->geometry().center();
    EXPECT_LE(std::abs(distance.x()), 10);
    EXPECT_LE(std::abs(distance.y()), 20);
}

TEST(WindowPosition, IsTheCentreOfTheScreenUnlessAPanelOrTheTitleBarIsInTheWay) {
    EXPECT_EQ(windowPosition({1280, 100, 1920, 1080}, {1280, 130, 1920, 1020}), QPoint(1880, 315));
    EXPECT_EQ(windowPosition({0, 0, 640, 480}, {48, 0, 592, 480}), QPoint(48, 0));
    EXPECT_EQ(windowPosition({0, 0, 1280, 900}, {300, 0, 980, 900}), QPoint(300, 125));
}

TEST_F(WindowLayout, LetsTheWindowManagerMoveMinimizeAndCloseButNotResizeIt) {
    QProcess xprop;
    xprop.start(QStringLiteral("xprop"), {QStringLiteral("-id"), QString::number(window().winId()),
                                          QStringLiteral("_NET_WM_ALLOWED_ACTIONS")});
    ASSERT_TRUE(waitUntil([&xprop] { return xprop.state() == QProcess::NotRunning; }));
    const std::string actions = xprop.readAllStandardOutput().toStdString();
    for (const char* const allowed : {"MOVE", "MINIMIZE", "CLOSE"})
        EXPECT_THAT(actions, HasSubstr(std::string("_NET_WM_ACTION_") + allowed));
    for (const char* const refused : {"RESIZE", "MAXIMIZE"})
        EXPECT_THAT(actions, testing::Not(HasSubstr(std::string("_NET_WM_ACTION_") + refused)));
}

TEST_F(WindowLayout, KeepsItsRowsInPlaceWhateverTheyShow) {
    const QFontMetrics type(delegate->refreshButton->font());
    EXPECT_LT(type.horizontalAdvance(delegate->refreshButton->text()), delegate->refreshButton->width());
    delegate->statusLabel->setText(QStringLiteral("FLASHING — DO NOT DISCONNECT"));
    delegate->flashButton->setTitle(QString(400, QLatin1Char('x')));
    delegate->portPopup->addItem(QString(400, QLatin1Char('x')));
    for (const QString& text : {QStringLiteral("one"), QStringLiteral("one\ntwo\nthree"),
                                QStringLiteral("word ").repeated(400), QString(2000, QLatin1Char('x'))}) {
        delegate->releaseLabel->setText(text);
        delegate->releaseLabel->parentWidget()->layout()->activate();
        window().layout()->activate();
        expectRowsInPlace(*delegate);
    }
}

/// As on macOS, where a control's shadow belongs to the widget and not to its rectangle in the layout.
class StyleWithShadows : public QProxyStyle {
public:
    StyleWithShadows() : QProxyStyle(QStringLiteral("fusion")) {}

    QRect subElementRect(SubElement element, const QStyleOption* option,
                         const QWidget* widget) const override {
        const bool isPlace = element == SE_PushButtonLayoutItem || element == SE_ComboBoxLayoutItem ||
                             element == SE_ProgressBarLayoutItem || element == SE_LabelLayoutItem ||
                             element == SE_FrameLayoutItem;
        return isPlace ? option->rect.adjusted(3, 2, -4, -5)
                       : QProxyStyle::subElementRect(element, option, widget);
    }
};

TEST_F(WindowLayout, HasTheSameRowsWhereControlsHaveShadows) {
    QApplication::setStyle(new StyleWithShadows);
    show();
    expectRowsInPlace(*delegate);
    applyDarkControls(*qApp);
}

std::vector<std::string> linesOf(TextLabel* label, const std::string& text) {
    label->setText(QString::fromStdString(text));
    std::vector<std::string> lines;
    for (const QString& line : label->lines()) {
        EXPECT_LE(QFontMetrics(label->font()).horizontalAdvance(line), label->width());
        lines.push_back(line.toStdString());
    }
    return lines;
}

TEST_F(WindowLayout, EndsACutLabelWithAnEllipsisAndBreaksAWordThatIsTooWide) {
    TextLabel* const shown = delegate->releaseLabel;
    EXPECT_THAT(linesOf(shown, "one\ntwo\nthree"), ElementsAre("one", "two", "three"));
    EXPECT_THAT(linesOf(shown, "one\ntwo\nthree\nfour"), ElementsAre("one", "two", "three…"));
    const std::string file(120, 'x');
    std::string joined;
    for (const std::string& line : linesOf(shown, "open " + file + ".bin: No such file or directory"))
        joined += line;
    EXPECT_THAT(joined, HasSubstr(file + ".bin: No such file or directory"));
    EXPECT_EQ(linesOf(delegate->statusLabel, std::string(40, 'x')).size(), 2U);
    auto* const hint = static_cast<TextLabel*>(labelOf(
        *delegate, "G0 BOOT MODE  //  Turn off → hold G0 → power on → release G0 → connect USB data cable"));
    EXPECT_EQ(linesOf(hint, "one\ntwo\nthree").size(), 2U);
    EXPECT_EQ(hint->maximumHeight(), hint->heightForWidth(hint->width()));
}

TEST_F(WindowLayout, DrawsEveryLineOfALabelAndCentresASingleLine) {
    TextLabel* const status = delegate->statusLabel;
    const auto inkOfHalf = [status](const char* text, int half) {
        status->setText(QString::fromUtf8(text));
        const QImage picture = status->grab().toImage();
        int ink = 0;
        for (int y = 0; y < picture.height() / 2; ++y)
            for (int x = 0; x < picture.width(); ++x)
                ink += hex(picture.pixelColor(x, y + half * picture.height() / 2)) == "#ffa333" ? 1 : 0;
        return ink;
    };
    for (const int half : {0, 1}) {
        EXPECT_GT(inkOfHalf("HHHH\nHHHH", half), 0) << half;
        EXPECT_GT(inkOfHalf("HHHH", half), 0) << half;
    }
}

TEST_F(WindowLayout, MovesTheProgressBarOnlyWhileItIsAnimated) {
    const auto picture = [this] { return delegate->progress->grab().toImage(); };
    const auto isBlockAt = [&](double place) {
        const QImage shown = picture();
        const int x = static_cast<int>(place * shown.width());
        return hex(shown.pixelColor(x, shown.height() / 2)) == hex(delegate->warning);
    };
    const QImage still = picture();
    EXPECT_NE(hex(still.pixelColor(still.rect().center())), "#090909");
    delegate->progress->setAnimating(true);
    std::vector<double> places;  // there and back
    EXPECT_TRUE(waitUntil([&] {
        for (const double place : {0.1, 0.5, 0.9})
            if (isBlockAt(place) && (places.empty() || places.back() != place)) places.push_back(place);
        return places.size() == 5;
    }));
    EXPECT_THAT(places, ElementsAre(0.1, 0.5, 0.9, 0.5, 0.1));
    delegate->progress->setAnimating(false);
    EXPECT_EQ(picture(), still);
}

TEST_F(WindowLayout, HasAReadOnlyLogWithAnInsetAndAScrollBar) {
    const LogTextView* const log = delegate->logTextView;
    EXPECT_TRUE(log->isReadOnly());
    EXPECT_FALSE(log->isUndoRedoEnabled());
    EXPECT_EQ(hex(log->palette().color(QPalette::Text)), hex(delegate->foreground));
    EXPECT_EQ(log->frameShape(), QFrame::NoFrame);
    EXPECT_EQ(log->verticalScrollBarPolicy(), Qt::ScrollBarAlwaysOn);
    EXPECT_EQ(log->cursorWidth(), 0);
    EXPECT_EQ(log->cursorRect().topLeft(), QPoint(10, 10));
}

using WindowInUse = WindowTest;

/// A window that covers the delegate's and takes the keyboard focus as soon as that is shown.
class WindowInFront : public QWidget {
public:
    explicit WindowInFront(const AppDelegate& delegate) : delegate_(delegate) {
        qApp->installEventFilter(this);
    }

    bool eventFilter(QObject* object, QEvent* event) override {
        if (event->type() == QEvent::Show && object == delegate_.window.get()) {
            setGeometry(delegate_.window->geometry());
            show();
            activateWindow();
        }
        return false;
    }

private:
    const AppDelegate& delegate_;
};

TEST_F(WindowInUse, BringsTheWindowToTheFrontWithTheKeyboard) {
    const WindowInFront other(*delegate);
    launch();
    EXPECT_TRUE(waitUntil([this] { return delegate->window->isActiveWindow(); }));
    EXPECT_TRUE(waitUntil([this] { return colourOnScreen(*delegate->window, {5, 5}) == "#090909"; }));
}

}  // namespace
}  // namespace qelmo
