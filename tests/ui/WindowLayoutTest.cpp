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

/// The window as it was built, shown, and not yet filled.
class WindowLayout : public WindowTest {
protected:
    WindowLayout() {
        delegate->buildWindow();
        delegate->window->show();
        EXPECT_TRUE(waitUntil([this] { return delegate->window->windowHandle()->isExposed(); }));
    }

    QWidget& window() const { return *delegate->window; }

    /// The only or the first view of a row.
    QWidget* view(const std::string& row) const {
        for (const WindowRow& candidate : rowsOf(*delegate))
            if (row == candidate.name) return candidate.views.front();
        throw std::runtime_error("no row " + row);
    }
    TextLabel* label(const std::string& row) const { return static_cast<TextLabel*>(view(row)); }

    std::vector<QRect> frames() const {
        std::vector<QRect> all;
        for (const WindowRow& row : rowsOf(*delegate)) all.push_back(frameOf(row));
        return all;
    }

    static void expectType(const QWidget* view, int size, int weight) {
        EXPECT_EQ(view->font().pixelSize(), size);
        EXPECT_EQ(view->font().weight(), weight);
        EXPECT_TRUE(QFontInfo(view->font()).fixedPitch());
    }

    void expectLabel(const TextLabel* shown, int size, int weight, const QColor& colour) const {
        expectType(shown, size, weight);
        EXPECT_EQ(hex(shown->colour()), hex(colour));
        EXPECT_EQ(shown->textFormat(), Qt::PlainText);
        EXPECT_TRUE(shown->wordWrap());
        EXPECT_EQ(shown->textInteractionFlags() & Qt::TextEditorInteraction, 0);
        EXPECT_GE(shown->height(), QFontMetrics(shown->font()).height());
    }

    std::string colourAt(const QPoint& place) const { return colourOnScreen(window(), place); }
};

/// The rows and what is inside them, with their insets, spacings, widths and heights.
void expectEverythingInPlace(const AppDelegate& delegate) {
    EXPECT_EQ(rowsOf(delegate).size(), 10U);
    expectRowsInPlace(delegate);
    const QRect caption = frameOf(rowsOf(delegate).at(4).views.front());
    const QRect menu = frameOf(delegate.portPopup);
    const QRect refresh = frameOf(delegate.refreshButton);
    EXPECT_EQ(caption.left(), Column::left);
    EXPECT_EQ(caption.width(), 82);
    EXPECT_EQ(menu.left(), Column::left + 82 + 10);
    EXPECT_EQ(menu.height(), 32);
    EXPECT_EQ(refresh.left() - (menu.right() + 1), 10);
    EXPECT_EQ(refresh.width(), 122);
    EXPECT_EQ(refresh.right() + 1, Column::right);
    for (const QRect& view : {caption, refresh})
        EXPECT_LE(std::abs(view.center().y() - menu.center().y()), 1);

    const QRect status = frameOf(delegate.statusLabel);
    const QRect progress = frameOf(delegate.progress);
    EXPECT_EQ(status.left(), Column::left);
    EXPECT_EQ(status.width(), 180);
    EXPECT_EQ(progress.left(), Column::left + 180 + 12);
    EXPECT_EQ(progress.right() + 1, Column::right);
    EXPECT_LE(std::abs(status.center().y() - progress.center().y()), 1);

    const QRect panel = frameOf(rowsOf(delegate).at(3).views.front());
    const QRect inPanel = frameOf(delegate.releaseLabel);
    EXPECT_EQ(inPanel.left(), Column::left + 16);
    EXPECT_EQ(inPanel.right() + 1, Column::right - 16);
    EXPECT_LE(std::abs(inPanel.center().y() - panel.center().y()), 1);
    EXPECT_TRUE(panel.contains(inPanel));
}

TEST_F(WindowLayout, BeginsCentredWithAFixedSizeAndTheTextsOfANewWindow) {
    const QRect screen = window().screen()->geometry();
    EXPECT_EQ(screen.size(), QSize(1280, 900));
    const QPoint distance = window().windowHandle()->frameGeometry().center() - screen.center();
    EXPECT_LE(std::abs(distance.x()), 10);
    EXPECT_LE(std::abs(distance.y()), 20);
    for (const QSize& size : {window().size(), window().minimumSize(), window().maximumSize()})
        EXPECT_EQ(size, QSize(720, 650));
    EXPECT_EQ(window().windowTitle().toStdString(), "QELMO Varnox Flasher");
    EXPECT_FALSE(window().testAttribute(Qt::WA_DeleteOnClose));
    expectShown("STARTING");
    EXPECT_EQ(delegate->state(), WindowState());
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre());
    EXPECT_EQ(delegate->refreshButton->title().toStdString(), "REFRESH BUILD");
    pressFlash();
    EXPECT_EQ(takeLog(), "");
}

TEST_F(WindowLayout, KeepsItsRowsInPlaceWhateverTheyShow) {
    expectEverythingInPlace(*delegate);
    const auto before = frames();
    delegate->statusLabel->setText(QStringLiteral("FLASHING — DO NOT DISCONNECT"));
    delegate->flashButton->setTitle(QString(400, QLatin1Char('x')));
    delegate->portPopup->addItem(QString(400, QLatin1Char('x')));
    for (const QString& text : {QStringLiteral("one"), QStringLiteral("one\ntwo\nthree"),
                                QStringLiteral("word ").repeated(400), QString(2000, QLatin1Char('x'))}) {
        delegate->releaseLabel->setText(text);
        view("release panel")->layout()->activate();
        window().layout()->activate();
        expectEverythingInPlace(*delegate);
        EXPECT_EQ(frames(), before);
    }
    EXPECT_EQ(window().size(), QSize(720, 650));
    EXPECT_LE(delegate->statusLabel->heightForWidth(180), delegate->statusLabel->height());
    TextLabel* const hint = label("hint");
    hint->setText(QStringLiteral("one\ntwo"));
    EXPECT_EQ(hint->maximumHeight(), hint->heightForWidth(Column::width));
}

TEST_F(WindowLayout, SetsItsTypeInSizesWeightsAndColours) {
    expectLabel(label("title"), 29, QFont::Bold, delegate->foreground);
    expectLabel(label("subtitle"), 12, QFont::DemiBold, delegate->accent);
    expectLabel(delegate->releaseLabel, 13, QFont::Medium, delegate->foreground);
    expectLabel(label("port row"), 11, QFont::Bold, delegate->muted);
    expectLabel(label("hint"), 11, QFont::Medium, delegate->muted);
    expectLabel(delegate->statusLabel, 11, QFont::Bold, delegate->warning);
    expectLabel(label("footer"), 10, QFont::Bold, delegate->accent);
    expectType(delegate->portPopup, 12, QFont::Medium);
    expectType(delegate->refreshButton, 11, QFont::Bold);
    expectType(delegate->logTextView, 11, QFont::Normal);
    expectType(delegate->flashButton, 14, QFont::Bold);
}

TEST_F(WindowLayout, CutsNoTextOff) {
    for (const auto* shown : window().findChildren<QLabel*>())
        EXPECT_GE(shown->height(), shown->heightForWidth(shown->width())) << textOf(shown);
    const auto* refresh = delegate->refreshButton;
    EXPECT_LT(QFontMetrics(refresh->font()).horizontalAdvance(refresh->text()), refresh->width());
}

TEST_F(WindowLayout, PaintsItsGroundsInTheirColoursAndRoundsTheCornersOfThePanel) {
    expectGroundsOnScreen(*delegate);
    const QRect panel = frameOf(view("release panel"));
    EXPECT_EQ(colourAt(panel.topLeft()), "#090909");
    EXPECT_EQ(colourAt(panel.bottomRight()), "#090909");
    EXPECT_EQ(colourAt(panel.topLeft() + QPoint(6, 0)), "#161616");
}

/// What a label draws.
std::vector<std::string> linesOf(const TextLabel* label) {
    std::vector<std::string> lines;
    for (const QString& line : label->lines()) lines.push_back(line.toStdString());
    return lines;
}

TEST_F(WindowLayout, EndsTheThirdLineOfTheReleaseWithASignWhenMoreFollows) {
    TextLabel* const shown = delegate->releaseLabel;
    shown->setText(QStringLiteral("one\ntwo\nthree"));
    EXPECT_THAT(linesOf(shown), ElementsAre("one", "two", "three"));
    shown->setText(QStringLiteral("one\ntwo\nthree\nfour"));
    EXPECT_THAT(linesOf(shown), ElementsAre("one", "two", "three…"));
}

TEST_F(WindowLayout, BreaksAWordThatIsWiderThanItsLabel) {
    const std::string name(120, 'x');
    TextLabel* const shown = delegate->releaseLabel;
    shown->setText(QString::fromStdString("open " + name + ".bin: No such file or directory"));
    std::string joined;
    for (const QString& line : shown->lines()) {
        EXPECT_LE(QFontMetrics(shown->font()).horizontalAdvance(line), shown->width());
        joined += line.toStdString();
    }
    EXPECT_THAT(joined, testing::StartsWith("open"));
    EXPECT_THAT(joined, testing::EndsWith(name + ".bin: No such file or directory"));
    delegate->statusLabel->setText(QString(40, QLatin1Char('x')));
    EXPECT_EQ(linesOf(delegate->statusLabel).size(), 2U);
}

TEST_F(WindowLayout, DrawsEveryLineOfALabel) {
    TextLabel* const shown = delegate->releaseLabel;
    const auto inkOfLine = [shown](int line) {
        shown->parentWidget()->layout()->activate();
        const QImage picture = shown->grab().toImage();
        const int height = picture.height() / 3;
        int ink = 0;
        for (int y = line * height; y < (line + 1) * height; ++y)
            for (int x = 0; x < picture.width(); ++x)
                ink += hex(picture.pixelColor(x, y)) == "#f0f0f0" ? 1 : 0;
        return ink;
    };
    shown->setText(QString(200, QLatin1Char('M')));
    for (const int line : {0, 1, 2}) EXPECT_GT(inkOfLine(line), 0) << line;
}

TEST_F(WindowLayout, HasABarThatMovesOnlyWhileItIsAnimated) {
    const auto picture = [this] { return delegate->progress->grab().toImage(); };
    const auto isBlockAt = [&](double place) {
        const QImage shown = picture();
        const int x = static_cast<int>(place * shown.width());
        return hex(shown.pixelColor(x, shown.height() / 2)) == hex(delegate->warning);
    };
    EXPECT_NE(colourAt(frameOf(delegate->progress).center()), "#090909");
    const QImage still = picture();
    delegate->progress->setAnimating(true);
    // There and back.
    for (const double end : {0.02, 0.98, 0.02}) {
        EXPECT_TRUE(waitUntil([&] { return isBlockAt(end) && isBlockAt(0.2 * (1 - end) + 0.8 * end); }))
            << end;
        EXPECT_FALSE(isBlockAt(0.5));
    }
    delegate->progress->setAnimating(false);
    EXPECT_EQ(picture(), still);
}

TEST_F(WindowLayout, HasABlackLogWithAnInsetAndAScrollBarThatCanBeRead) {
    const LogTextView* const log = delegate->logTextView;
    EXPECT_TRUE(log->isReadOnly());
    EXPECT_FALSE(log->isUndoRedoEnabled());
    EXPECT_EQ(hex(log->palette().color(QPalette::Base)), "#000000");
    EXPECT_EQ(hex(log->palette().color(QPalette::Text)), hex(delegate->foreground));
    EXPECT_EQ(log->document()->documentMargin(), 10.0);
    EXPECT_EQ(log->frameShape(), QFrame::NoFrame);
    EXPECT_EQ(log->verticalScrollBarPolicy(), Qt::ScrollBarAlwaysOn);
    EXPECT_EQ(log->cursorWidth(), 0);
    EXPECT_EQ(log->cursorRect().topLeft(), QPoint(10, 10));
}

TEST(WindowPosition, IsTheCentreOfTheScreenOrWhatPanelsAndTheTitleBarLeave) {
    EXPECT_EQ(windowPosition({1280, 100, 1920, 1080}, {1280, 130, 1920, 1020}), QPoint(1880, 315));
    EXPECT_EQ(windowPosition({0, 0, 960, 540}, {0, 28, 960, 512}), QPoint(120, 28));
    EXPECT_EQ(windowPosition({0, 0, 640, 480}, {48, 0, 592, 480}), QPoint(48, 0));
    EXPECT_EQ(windowPosition({0, 0, 1280, 800}, {0, 0, 1280, 730}), QPoint(280, 40));
    EXPECT_EQ(windowPosition({0, 0, 1280, 900}, {300, 0, 980, 900}), QPoint(300, 125));
}

using WindowInUse = WindowTest;

/// Another window that comes up in front of the delegate's, with the keyboard, as soon as that is shown.
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

TEST_F(WindowLayout, LetsTheWindowManagerMoveMinimizeAndCloseButNotResizeIt) {
    QProcess xprop;
    xprop.start(QStringLiteral("xprop"), {QStringLiteral("-id"), QString::number(window().winId()),
                                          QStringLiteral("_NET_WM_ALLOWED_ACTIONS")});
    ASSERT_TRUE(waitUntil([&xprop] { return xprop.state() == QProcess::NotRunning; }));
    const std::string actions = xprop.readAllStandardOutput().toStdString();
    for (const char* const allowed : {"MOVE", "MINIMIZE", "CLOSE"})
        EXPECT_THAT(actions, testing::HasSubstr(std::string("_NET_WM_ACTION_") + allowed));
    for (const char* const refused : {"RESIZE", "MAXIMIZE_HORZ", "MAXIMIZE_VERT"})
        EXPECT_THAT(actions, testing::Not(testing::HasSubstr(std::string("_NET_WM_ACTION_") + refused)));
}

/// As on macOS, where a control's shadow belongs to the widget and not to its rectangle in the layout.
class StyleWithShadows : public QProxyStyle {
public:
    StyleWithShadows() : QProxyStyle(QStringLiteral("fusion")) {}

    QRect subElementRect(SubElement element, const QStyleOption* option,
                         const QWidget* widget) const override {
        if (element == SE_PushButtonLayoutItem) return option->rect.adjusted(6, 4, -6, -8);
        if (element == SE_ComboBoxLayoutItem) return option->rect.adjusted(3, 2, -4, -4);
        if (element == SE_ProgressBarLayoutItem || element == SE_LabelLayoutItem ||
            element == SE_FrameLayoutItem)
            return option->rect.adjusted(1, 2, -3, -4);
        return QProxyStyle::subElementRect(element, option, widget);
    }
};

class WindowLayoutWithShadows : public WindowTest {
protected:
    WindowLayoutWithShadows() { QApplication::setStyle(new StyleWithShadows); }
    ~WindowLayoutWithShadows() override { applyDarkControls(*qApp); }
};

TEST_F(WindowLayoutWithShadows, HasTheSameRowsInsetsSpacingsAndHeights) {
    delegate->buildWindow();
    delegate->window->show();
    ASSERT_TRUE(waitUntil([this] { return delegate->window->windowHandle()->isExposed(); }));
    expectEverythingInPlace(*delegate);
}

}  // namespace

}  // namespace qelmo
