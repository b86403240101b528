#include <QComboBox>
#include <QGuiApplication>
#include <QLayout>
#include <QScreen>
#include <QTest>
#include <QWindow>

#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/ColouredBox.h"
#include "ui/LogTextView.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

using testing::ElementsAre;

constexpr int columnLeft = 26;
constexpr int columnWidth = 668;
constexpr int columnRight = columnLeft + columnWidth;

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

    TextLabel* label(const char* text) const {
        for (auto* candidate : window().findChildren<QLabel*>())
            if (textOf(candidate) == text) return static_cast<TextLabel*>(candidate);
        throw std::runtime_error(std::string("no label ") + text);
    }
    TextLabel* title() const { return label("QELMO // FLASH"); }
    TextLabel* subtitle() const { return label("VARNOX  •  CARDPUTER ADV  •  COMPLETE 0x0 IMAGE"); }
    TextLabel* caption() const { return label("BOOT PORT"); }
    TextLabel* hint() const {
        return label("G0 BOOT MODE  //  Turn off → hold G0 → power on → release G0 → connect USB data cable");
    }
    TextLabel* footer() const {
        return label("INTERNAL FLASH ONLY  •  SD CARD IS NEVER MOUNTED OR ACCESSED");
    }
    ColouredBox* box(std::size_t index) const {
        std::vector<ColouredBox*> boxes;
        for (auto* child : window().findChildren<QWidget*>())
            if (auto* const found = dynamic_cast<ColouredBox*>(child)) boxes.push_back(found);
        return boxes.at(index);
    }
    ColouredBox* rule() const { return box(0); }
    ColouredBox* panel() const { return box(1); }

    QRect frame(const QWidget* widget) const { return {widget->mapTo(&window(), QPoint()), widget->size()}; }

    /// The rows from top to bottom.
    std::vector<QRect> rows() const {
        return {frame(title()),
                frame(subtitle()),
                frame(rule()),
                frame(panel()),
                frame(caption()) | frame(delegate->portPopup) | frame(delegate->refreshButton),
                frame(hint()),
                frame(delegate->statusLabel) | frame(delegate->progress),
                frame(delegate->logTextView),
                frame(delegate->flashButton),
                frame(footer())};
    }

    void expectLabel(const TextLabel* shown, int size, int weight, const QColor& colour) const {
        EXPECT_EQ(shown->font().pixelSize(), size);
        EXPECT_EQ(shown->font().weight(), weight);
        EXPECT_TRUE(QFontInfo(shown->font()).fixedPitch());
        EXPECT_EQ(hex(shown->colour()), hex(colour));
        EXPECT_EQ(hex(shown->palette().color(shown->foregroundRole())), hex(colour));
        EXPECT_EQ(shown->textFormat(), Qt::PlainText);
        EXPECT_TRUE(shown->wordWrap());
        EXPECT_EQ(shown->textInteractionFlags() & Qt::TextEditable, 0);
        EXPECT_GE(shown->height(), QFontMetrics(shown->font()).height());
    }

    /// What the screen shows at a place of the window.
    std::string colourOnScreen(const QPoint& place) const {
        const QPoint global = window().mapToGlobal(place);
        return hex(window().screen()->grabWindow(0, global.x(), global.y(), 1, 1).toImage().pixelColor(0, 0));
    }
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

TEST_F(WindowLayout, IsOneColumnOfTenRowsWithTheirInsetsAndSpacing) {
    const std::vector<QRect> shown = rows();
    ASSERT_EQ(shown.size(), 10U);
    EXPECT_EQ(shown.front().top(), 24);
    EXPECT_LE(shown.back().bottom() + 1, 650 - 24);
    for (const QRect& row : shown) {
        EXPECT_EQ(row.left(), columnLeft);
        EXPECT_EQ(row.width(), columnWidth);
    }
    for (std::size_t index = 1; index < shown.size(); ++index)
        EXPECT_EQ(shown[index].top() - (shown[index - 1].bottom() + 1), 14) << "above row " << index + 1;
}

TEST_F(WindowLayout, HasRowsOfTheirHeights) {
    const std::vector<QRect> shown = rows();
    EXPECT_EQ(shown[2].height(), 2);
    EXPECT_EQ(shown[3].height(), 82);
    EXPECT_EQ(shown[4].height(), 32);
    EXPECT_EQ(shown[7].height(), 210);
    EXPECT_EQ(shown[8].height(), 44);
}

TEST_F(WindowLayout, HasAPortRowOfThreeViewsCentredVertically) {
    const QRect row = rows()[4];
    const QRect menu = frame(delegate->portPopup);
    const QRect refresh = frame(delegate->refreshButton);
    EXPECT_EQ(frame(caption()).width(), 82);
    EXPECT_EQ(frame(caption()).left(), columnLeft);
    EXPECT_EQ(menu.left(), columnLeft + 82 + 10);
    EXPECT_EQ(menu.height(), 32);
    EXPECT_EQ(refresh.left() - (menu.right() + 1), 10);
    EXPECT_EQ(refresh.width(), 122);
    EXPECT_EQ(refresh.right() + 1, columnRight);
    for (const QRect& view : {frame(caption()), menu, refresh})
        EXPECT_LE(std::abs(view.center().y() - row.center().y()), 1);
}

TEST_F(WindowLayout, HasAnActionRowOfTwoViewsCentredVertically) {
    const QRect status = frame(delegate->statusLabel);
    const QRect progress = frame(delegate->progress);
    EXPECT_EQ(status.left(), columnLeft);
    EXPECT_EQ(status.width(), 180);
    EXPECT_EQ(progress.left(), columnLeft + 180 + 12);
    EXPECT_EQ(progress.right() + 1, columnRight);
    EXPECT_LE(std::abs(status.center().y() - progress.center().y()), 1);
}

TEST_F(WindowLayout, KeepsItsRowsInPlaceWhateverTheStatusSays) {
    const auto before = rows();
    delegate->statusLabel->setText(QStringLiteral("FLASHING — DO NOT DISCONNECT"));
    delegate->releaseLabel->setText(QString(2000, QLatin1Char('x')));
    delegate->flashButton->setTitle(QString(400, QLatin1Char('x')));
    delegate->portPopup->addItem(QString(400, QLatin1Char('x')));
    window().layout()->activate();
    EXPECT_EQ(rows(), before);
    EXPECT_EQ(window().size(), QSize(720, 650));
}

TEST_F(WindowLayout, ShowsALongStatusWhole) {
    delegate->statusLabel->setText(QStringLiteral("FLASHING — DO NOT DISCONNECT"));
    EXPECT_LE(delegate->statusLabel->heightForWidth(180), delegate->statusLabel->height());
}

TEST_F(WindowLayout, SetsItsTypeInSizesWeightsAndColours) {
    expectLabel(title(), 29, QFont::Bold, delegate->foreground);
    expectLabel(subtitle(), 12, QFont::DemiBold, delegate->accent);
    expectLabel(delegate->releaseLabel, 13, QFont::Medium, delegate->foreground);
    expectLabel(caption(), 11, QFont::Bold, delegate->muted);
    expectLabel(hint(), 11, QFont::Medium, delegate->muted);
    expectLabel(delegate->statusLabel, 11, QFont::Bold, delegate->warning);
    expectLabel(footer(), 10, QFont::Bold, delegate->accent);
    EXPECT_EQ(delegate->portPopup->font().pixelSize(), 12);
    EXPECT_EQ(delegate->portPopup->font().weight(), QFont::Medium);
    EXPECT_EQ(delegate->refreshButton->font().pixelSize(), 11);
    EXPECT_EQ(delegate->refreshButton->font().weight(), QFont::Bold);
    EXPECT_EQ(delegate->logTextView->font().pixelSize(), 11);
    EXPECT_EQ(delegate->logTextView->font().weight(), QFont::Normal);
    EXPECT_EQ(delegate->flashButton->font().pixelSize(), 14);
    EXPECT_EQ(delegate->flashButton->font().weight(), QFont::Bold);
}

TEST_F(WindowLayout, CutsNoTextOff) {
    for (const auto* shown : window().findChildren<QLabel*>())
        EXPECT_GE(shown->height(), shown->heightForWidth(shown->width())) << textOf(shown);
    const auto* refresh = delegate->refreshButton;
    EXPECT_LT(QFontMetrics(refresh->font()).horizontalAdvance(refresh->text()), refresh->width());
}

TEST_F(WindowLayout, PaintsItsGroundsInTheirColours) {
    const QRect log = frame(delegate->logTextView);
    EXPECT_EQ(colourOnScreen({5, 5}), "#090909");
    EXPECT_EQ(colourOnScreen({715, 645}), "#090909");
    EXPECT_EQ(colourOnScreen({360, frame(rule()).top()}), "#1fd4ed");
    EXPECT_EQ(colourOnScreen({360, frame(panel()).top() + 2}), "#161616");
    EXPECT_EQ(colourOnScreen(log.center()), "#000000");
    EXPECT_EQ(colourOnScreen(log.topLeft() + QPoint(1, 1)), "#000000");
}

TEST_F(WindowLayout, RoundsTheCornersOfThePanel) {
    const QRect frameOfPanel = frame(panel());
    EXPECT_EQ(colourOnScreen(frameOfPanel.topLeft()), "#090909");
    EXPECT_EQ(colourOnScreen(frameOfPanel.bottomRight()), "#090909");
    EXPECT_EQ(colourOnScreen(frameOfPanel.topLeft() + QPoint(6, 0)), "#161616");
    EXPECT_EQ(colourOnScreen(frameOfPanel.topLeft() + QPoint(0, 7)), "#161616");
}

TEST_F(WindowLayout, PutsTheReleaseIntoThePanel) {
    const QRect inside = frame(delegate->releaseLabel);
    EXPECT_EQ(inside.left(), columnLeft + 16);
    EXPECT_EQ(inside.right() + 1, columnRight - 16);
    for (const char* lines : {"one", "one\ntwo", "one\ntwo\nthree", "one\ntwo\nthree\nfour\nfive\nsix"}) {
        delegate->releaseLabel->setText(QString::fromUtf8(lines));
        panel()->layout()->activate();
        EXPECT_LE(std::abs(frame(delegate->releaseLabel).center().y() - frame(panel()).center().y()), 1)
            << lines;
    }
}

TEST_F(WindowLayout, ShowsThreeLinesOfTheReleaseAtMost) {
    const int inside = delegate->releaseLabel->width();
    delegate->releaseLabel->setText(QStringLiteral("one\ntwo\nthree"));
    const int threeLines = delegate->releaseLabel->heightForWidth(inside);
    delegate->releaseLabel->setText(QStringLiteral("word ").repeated(400));
    panel()->layout()->activate();
    EXPECT_EQ(delegate->releaseLabel->height(), threeLines);
    EXPECT_TRUE(frame(panel()).contains(frame(delegate->releaseLabel)));
}

TEST_F(WindowLayout, ShowsTwoLinesOfTheHintAtMost) {
    TextLabel* const shown = hint();
    EXPECT_LE(shown->heightForWidth(columnWidth), shown->height());
    shown->setText(QStringLiteral("one\ntwo"));
    EXPECT_EQ(shown->maximumHeight(), shown->heightForWidth(columnWidth));
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
    EXPECT_NE(colourOnScreen(frame(delegate->progress).center()), "#090909");
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
    EXPECT_EQ(hex(log->palette().color(QPalette::Base)), "#000000");
    EXPECT_EQ(hex(log->palette().color(QPalette::Text)), hex(delegate->foreground));
    EXPECT_EQ(log->document()->documentMargin(), 10.0);
    EXPECT_EQ(log->frameShape(), QFrame::NoFrame);
    EXPECT_EQ(log->verticalScrollBarPolicy(), Qt::ScrollBarAlwaysOn);
    EXPECT_EQ(log->cursorRect().topLeft(), QPoint(10, 10));
}

TEST_F(WindowLayout, LetsTheTabKeyVisitTheControlsFromTopToBottom) {
    delegate->portPopup->addItem(QStringLiteral("/dev/cu.usbmodem101"));
    delegate->flashButton->setEnabled(true);
    const std::vector<QWidget*> expected{delegate->portPopup, delegate->refreshButton, delegate->logTextView,
                                         delegate->flashButton, delegate->portPopup};
    delegate->portPopup->setFocus();
    for (QWidget* const control : expected) {
        EXPECT_EQ(window().focusWidget(), control);
        QTest::keyClick(window().windowHandle(), Qt::Key_Tab);
    }
}

TEST_F(WindowLayout, ShowsAnAmpersandInTheFlashButtonsTitle) {
    delegate->flashButton->setTitle(QStringLiteral("FLASH VERIFIED R&D"));
    EXPECT_EQ(delegate->flashButton->title().toStdString(), "FLASH VERIFIED R&D");
    EXPECT_EQ(delegate->flashButton->text().toStdString(), "FLASH VERIFIED R&&D");
    EXPECT_TRUE(delegate->flashButton->shortcut().isEmpty());
}

}  // namespace

}  // namespace qelmo
