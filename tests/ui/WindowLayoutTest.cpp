#include <QApplication>
#include <QComboBox>
#include <QLayout>
#include <QProxyStyle>
#include <QScreen>
#include <QWindow>

#include "tests/ui/WindowRows.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/DarkControls.h"
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
        showOnScreen();
    }

    void showOnScreen() const {
        ASSERT_TRUE(waitUntil([this] { return delegate->window->windowHandle()->isExposed(); }));
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
        EXPECT_EQ(hex(shown->palette().color(shown->foregroundRole())), hex(colour));
        EXPECT_EQ(shown->textFormat(), Qt::PlainText);
        EXPECT_TRUE(shown->wordWrap());
        EXPECT_EQ(shown->textInteractionFlags() & Qt::TextEditorInteraction, 0);
        EXPECT_GE(shown->height(), QFontMetrics(shown->font()).height());
    }

    std::string colourAt(const QPoint& place) const { return colourOnScreen(window(), place); }
};

TEST_F(WindowLayout, HasAFixedSizeAndItsTitle) {
    EXPECT_EQ(window().size(), QSize(720, 650));
    EXPECT_EQ(window().windowTitle().toStdString(), "QELMO Varnox Flasher");
    EXPECT_EQ(window().minimumSize(), QSize(720, 650));
    EXPECT_EQ(window().maximumSize(), QSize(720, 650));
    EXPECT_FALSE(window().testAttribute(Qt::WA_DeleteOnClose));
}

TEST_F(WindowLayout, CanBeClosedAndMinimizedButNotMaximized) {
    const Qt::WindowFlags flags = window().windowFlags();
    EXPECT_TRUE(flags.testFlag(Qt::WindowTitleHint));
    EXPECT_TRUE(flags.testFlag(Qt::WindowCloseButtonHint));
    EXPECT_TRUE(flags.testFlag(Qt::WindowMinimizeButtonHint));
    EXPECT_FALSE(flags.testFlag(Qt::WindowMaximizeButtonHint));
    EXPECT_FALSE(flags.testFlag(Qt::WindowContextHelpButtonHint));
}

TEST_F(WindowLayout, IsCentredOnTheScreen) {
    const QRect screen = window().screen()->geometry();
    EXPECT_EQ(screen.size(), QSize(1280, 900));
    EXPECT_EQ(window().geometry().topLeft(), QPoint((1280 - 720) / 2, (900 - 650) / 2));
}

TEST_F(WindowLayout, IsOneColumnOfTenRowsWithTheirInsetsSpacingAndHeights) {
    EXPECT_EQ(rowsOf(*delegate).size(), 10U);
    expectRowsInPlace(*delegate);
}

TEST_F(WindowLayout, HasAPortRowOfThreeViewsCentredVertically) {
    const QRect caption = frameOf(view("port row"));
    const QRect menu = frameOf(delegate->portPopup);
    const QRect refresh = frameOf(delegate->refreshButton);
    EXPECT_EQ(caption.width(), 82);
    EXPECT_EQ(caption.left(), Column::left);
    EXPECT_EQ(menu.left(), Column::left + 82 + 10);
    EXPECT_EQ(menu.height(), 32);
    EXPECT_EQ(refresh.left() - (menu.right() + 1), 10);
    EXPECT_EQ(refresh.width(), 122);
    EXPECT_EQ(refresh.right() + 1, Column::right);
    for (const QRect& view : {caption, menu, refresh})
        EXPECT_LE(std::abs(view.center().y() - menu.center().y()), 1);
}

TEST_F(WindowLayout, HasAnActionRowOfTwoViewsCentredVertically) {
    const QRect status = frameOf(delegate->statusLabel);
    const QRect progress = frameOf(delegate->progress);
    EXPECT_EQ(status.left(), Column::left);
    EXPECT_EQ(status.width(), 180);
    EXPECT_EQ(progress.left(), Column::left + 180 + 12);
    EXPECT_EQ(progress.right() + 1, Column::right);
    EXPECT_LE(std::abs(status.center().y() - progress.center().y()), 1);
}

TEST_F(WindowLayout, KeepsItsRowsInPlaceWhateverTheStatusSays) {
    const auto before = frames();
    delegate->statusLabel->setText(QStringLiteral("FLASHING — DO NOT DISCONNECT"));
    delegate->releaseLabel->setText(QString(2000, QLatin1Char('x')));
    delegate->flashButton->setTitle(QString(400, QLatin1Char('x')));
    delegate->portPopup->addItem(QString(400, QLatin1Char('x')));
    window().layout()->activate();
    EXPECT_EQ(frames(), before);
    EXPECT_EQ(window().size(), QSize(720, 650));
}

TEST_F(WindowLayout, ShowsALongStatusWhole) {
    delegate->statusLabel->setText(QStringLiteral("FLASHING — DO NOT DISCONNECT"));
    EXPECT_LE(delegate->statusLabel->heightForWidth(180), delegate->statusLabel->height());
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

TEST_F(WindowLayout, PaintsItsGroundsInTheirColours) {
    const QRect log = frameOf(delegate->logTextView);
    expectGroundsOnScreen(*delegate);
    EXPECT_EQ(colourAt({715, 645}), "#090909");
    EXPECT_EQ(colourAt(log.center()), "#000000");
}

TEST_F(WindowLayout, RoundsTheCornersOfThePanel) {
    const QRect frameOfPanel = frameOf(view("release panel"));
    EXPECT_EQ(colourAt(frameOfPanel.topLeft()), "#090909");
    EXPECT_EQ(colourAt(frameOfPanel.bottomRight()), "#090909");
    EXPECT_EQ(colourAt(frameOfPanel.topLeft() + QPoint(6, 0)), "#161616");
    EXPECT_EQ(colourAt(frameOfPanel.topLeft() + QPoint(0, 7)), "#161616");
}

TEST_F(WindowLayout, PutsTheReleaseIntoThePanel) {
    const QRect inside = frameOf(delegate->releaseLabel);
    EXPECT_EQ(inside.left(), Column::left + 16);
    EXPECT_EQ(inside.right() + 1, Column::right - 16);
    for (const char* lines : {"one", "one\ntwo", "one\ntwo\nthree", "one\ntwo\nthree\nfour\nfive\nsix"}) {
        delegate->releaseLabel->setText(QString::fromUtf8(lines));
        view("release panel")->layout()->activate();
        EXPECT_LE(std::abs(frameOf(delegate->releaseLabel).center().y() -
                           frameOf(view("release panel")).center().y()),
                  1)
            << lines;
    }
}

TEST_F(WindowLayout, ShowsThreeLinesOfTheReleaseAtMost) {
    const int inside = delegate->releaseLabel->width();
    delegate->releaseLabel->setText(QStringLiteral("one\ntwo\nthree"));
    const int threeLines = delegate->releaseLabel->heightForWidth(inside);
    delegate->releaseLabel->setText(QStringLiteral("word ").repeated(400));
    view("release panel")->layout()->activate();
    EXPECT_EQ(delegate->releaseLabel->height(), threeLines);
    EXPECT_TRUE(frameOf(view("release panel")).contains(frameOf(delegate->releaseLabel)));
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
    shown->setText(QStringLiteral("one\ntwo\n") + QString(500, QLatin1Char('x')));
    EXPECT_THAT(linesOf(shown), ElementsAre("one", "two", testing::EndsWith("xxx…")));
    EXPECT_LE(QFontMetrics(shown->font()).horizontalAdvance(shown->lines().back()), shown->width());
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

TEST_F(WindowLayout, ShowsTwoLinesOfTheHintAtMost) {
    TextLabel* const shown = label("hint");
    EXPECT_LE(shown->heightForWidth(Column::width), shown->height());
    shown->setText(QStringLiteral("one\ntwo"));
    EXPECT_EQ(shown->maximumHeight(), shown->heightForWidth(Column::width));
}

TEST_F(WindowLayout, BeginsWithItsTextsOfConstruction) {
    EXPECT_EQ(textOf(delegate->releaseLabel), "Validating embedded release…");
    EXPECT_EQ(textOf(delegate->statusLabel), "STARTING");
    EXPECT_THAT(itemsOf(delegate->portPopup), ElementsAre());
    EXPECT_FALSE(delegate->progress->isAnimating());
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(delegate->flashButton->title().toStdString(), "VALIDATING RELEASE");
    EXPECT_FALSE(delegate->flashButton->isEnabled());
    EXPECT_EQ(delegate->refreshButton->title().toStdString(), "REFRESH BUILD");
    EXPECT_TRUE(delegate->refreshButton->isEnabled());
    EXPECT_EQ(delegate->refreshButton->toolTip().toStdString(),
              "Reload the newest embedded build and rescan USB boot ports");
}

TEST_F(WindowLayout, SendsTheActionsOfItsTwoButtons) {
    EXPECT_EQ(delegate->refreshButton->action(), &AppDelegate::refreshBuildAndPorts);
    EXPECT_EQ(delegate->flashButton->action(), &AppDelegate::flashDevice);
}

TEST_F(WindowLayout, DoesNothingWhenTheDisabledFlashButtonIsClicked) {
    pressFlash();
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(delegate->flashProcess, nullptr);
}

TEST_F(WindowLayout, HasAnIndeterminateBarThatIsVisibleWhileItStands) {
    EXPECT_EQ(delegate->progress->minimum(), 0);
    EXPECT_EQ(delegate->progress->maximum(), 0);
    EXPECT_TRUE(delegate->progress->isVisible());
    EXPECT_NE(colourAt(frameOf(delegate->progress).center()), "#090909");
}

TEST_F(WindowLayout, HasABarThatMovesOnlyWhileItIsAnimated) {
    const auto picture = [this] { return delegate->progress->grab().toImage(); };
    const QImage still = picture();
    delegate->progress->startAnimation();
    const QImage first = picture();
    EXPECT_NE(first, still);
    EXPECT_TRUE(waitUntil([&] { return picture() != first; }));
    delegate->progress->stopAnimation();
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
    EXPECT_EQ(log->cursorRect().topLeft(), QPoint(10, 10));
}

TEST_F(WindowLayout, ShowsAnAmpersandInTheFlashButtonsTitle) {
    delegate->flashButton->setTitle(QStringLiteral("FLASH VERIFIED R&D"));
    EXPECT_EQ(delegate->flashButton->title().toStdString(), "FLASH VERIFIED R&D");
    EXPECT_EQ(delegate->flashButton->text().toStdString(), "FLASH VERIFIED R&&D");
    EXPECT_TRUE(delegate->flashButton->shortcut().isEmpty());
}

TEST(WindowPosition, IsTheScreensCentreWhereTheWindowFits) {
    EXPECT_EQ(windowPosition({0, 0, 1280, 900}, {0, 0, 1280, 900}), QPoint(280, 125));
    EXPECT_EQ(windowPosition({1280, 100, 1920, 1080}, {1280, 130, 1920, 1020}), QPoint(1880, 315));
}

TEST(WindowPosition, ShowsTheTitleBarOnASmallScreen) {
    EXPECT_EQ(windowPosition({0, 0, 1024, 600}, {0, 0, 1024, 600}), QPoint(152, 0));
    EXPECT_EQ(windowPosition({0, 0, 960, 540}, {0, 28, 960, 512}), QPoint(120, 28));
    EXPECT_EQ(windowPosition({0, 0, 640, 480}, {48, 0, 592, 480}), QPoint(48, 0));
}

TEST(WindowPosition, LeavesThePanelsFree) {
    EXPECT_EQ(windowPosition({0, 0, 1280, 800}, {0, 90, 1280, 710}), QPoint(280, 90));
    EXPECT_EQ(windowPosition({0, 0, 1280, 800}, {0, 0, 1280, 730}), QPoint(280, 40));
    EXPECT_EQ(windowPosition({0, 0, 1280, 900}, {300, 0, 980, 900}), QPoint(300, 125));
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

    void build() const {
        delegate->buildWindow();
        delegate->window->show();
        ASSERT_TRUE(waitUntil([this] { return delegate->window->windowHandle()->isExposed(); }));
    }
};

TEST_F(WindowLayoutWithShadows, HasTheSameRowsInsetsSpacingsAndHeights) {
    build();
    expectRowsInPlace(*delegate);
    const QRect menu = frameOf(delegate->portPopup);
    const QRect refresh = frameOf(delegate->refreshButton);
    EXPECT_EQ(menu.left(), Column::left + 82 + 10);
    EXPECT_EQ(refresh.left() - (menu.right() + 1), 10);
    EXPECT_EQ(refresh.right() + 1, Column::right);
    const QRect progress = frameOf(delegate->progress);
    EXPECT_EQ(progress.left(), Column::left + 180 + 12);
    EXPECT_EQ(progress.right() + 1, Column::right);
}

TEST_F(WindowLayoutWithShadows, HasTheReleaseAtTheInsetOfItsPanel) {
    build();
    const QRect label = frameOf(delegate->releaseLabel);
    EXPECT_EQ(label.left(), Column::left + 16);
    EXPECT_EQ(label.right() + 1, Column::right - 16);
}

}  // namespace

}  // namespace qelmo
