#include <QApplication>
#include <QClipboard>
#include <QScrollBar>
#include <QTest>
#include <QTextBlock>
#include <QWindow>
#include <thread>

#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/LogTextView.h"

namespace qelmo {

namespace {

using testing::HasSubstr;

class Log : public WindowTest {
protected:
    Log() {
        launch();
        takeLog();
    }

    std::string afterAppending(const std::string& text, bool addNewline) {
        delegate->appendLog(text, addNewline);
        return takeLog();
    }

    void appendLines(int count) {
        for (int line = 1; line <= count; ++line) delegate->appendLog("line " + std::to_string(line), true);
        settle();
    }

    QScrollBar* scrollBar() const { return delegate->logTextView->verticalScrollBar(); }
};

TEST_F(Log, EndsATextWithALineFeedWhenItIsAskedTo) {
    EXPECT_EQ(afterAppending("abc", true), "abc\n");
}

TEST_F(Log, DoesNotDoubleALineFeed) {
    EXPECT_EQ(afterAppending("abc\n", true), "abc\n");
}

TEST_F(Log, AppendsAChunkAsItStands) {
    EXPECT_EQ(afterAppending("abc", false), "abc");
    EXPECT_EQ(afterAppending("def\n\n", false), "def\n\n");
}

TEST_F(Log, TakesAnEmptyTextAsAnEmptyLine) {
    EXPECT_EQ(afterAppending("", true), "\n");
}

TEST_F(Log, AddsNothingForAnEmptyChunkButStillShowsTheEnd) {
    appendLines(100);
    scrollBar()->setValue(0);
    takeLog();
    EXPECT_EQ(afterAppending("", false), "");
    EXPECT_EQ(scrollBar()->value(), scrollBar()->maximum());
}

TEST_F(Log, AppendsNothingBeforeTheCallHasReturned) {
    const QString before = delegate->logTextView->toPlainText();
    delegate->appendLog("later", true);
    EXPECT_EQ(delegate->logTextView->toPlainText(), before);
    EXPECT_EQ(takeLog(), "later\n");
}

TEST_F(Log, KeepsTheOrderOfTheCallsFromSeveralThreads) {
    delegate->appendLog("main one", true);
    std::thread([this] {
        delegate->appendLog("thread one", true);
        delegate->appendLog("thread two", true);
    }).join();
    delegate->appendLog("main two", true);
    EXPECT_EQ(takeLog(), "main one\nthread one\nthread two\nmain two\n");
}

TEST_F(Log, KeepsEveryTextWholeWhenThreadsWriteAtTheSameTime) {
    constexpr int perThread = 500;
    const auto write = [this](char letter) {
        for (int count = 0; count < perThread; ++count) delegate->appendLog(std::string(20, letter), true);
    };
    std::thread one(write, 'a'), other(write, 'b');
    one.join();
    other.join();
    std::map<std::string, int> lines;
    std::istringstream text(takeLog());
    for (std::string line; std::getline(text, line);) ++lines[line];
    EXPECT_THAT(lines, testing::ElementsAre(testing::Pair(std::string(20, 'a'), perThread),
                                            testing::Pair(std::string(20, 'b'), perThread)));
}

TEST_F(Log, ShowsTheNewestTextWhereverTheUserHadScrolledTo) {
    appendLines(200);
    EXPECT_EQ(scrollBar()->value(), scrollBar()->maximum());
    scrollBar()->setValue(20);
    delegate->appendLog("the newest", true);
    settle();
    EXPECT_EQ(scrollBar()->value(), scrollBar()->maximum());
    const QRect lastLine =
        delegate->logTextView->cursorRect(QTextCursor(delegate->logTextView->document()->lastBlock()));
    EXPECT_TRUE(delegate->logTextView->viewport()->rect().contains(lastLine.center()));
}

TEST_F(Log, NeverShortensItself) {
    takeLog();
    appendLines(5000);
    const std::string text = takeLog();
    EXPECT_THAT(text, testing::StartsWith("line 1\nline 2\n"));
    EXPECT_THAT(text, testing::EndsWith("line 5000\n"));
    EXPECT_EQ(delegate->logTextView->maximumBlockCount(), 0);
}

TEST_F(Log, ShowsMarkupAsItStands) {
    EXPECT_EQ(afterAppending("<b>bold</b> & <script>", true), "<b>bold</b> & <script>\n");
}

TEST_F(Log, GivesEveryTextTheSameFontAndColour) {
    appendLines(3);
    const QTextCursor cursor(delegate->logTextView->document()->lastBlock().previous());
    EXPECT_FALSE(cursor.charFormat().hasProperty(QTextFormat::ForegroundBrush));
    EXPECT_FALSE(cursor.charFormat().hasProperty(QTextFormat::FontWeight));
}

TEST_F(Log, CanBeSelectedAndCopiedWithTheKeyboard) {
    delegate->appendLog("copy me", true);
    settle();
    delegate->logTextView->setFocus();
    QTest::keyClick(delegate->window->windowHandle(), Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(delegate->window->windowHandle(), Qt::Key_C, Qt::ControlModifier);
    EXPECT_THAT(QApplication::clipboard()->text().toStdString(), HasSubstr("copy me"));
}

TEST_F(Log, CanBeSelectedWithTheMouse) {
    QWidget* const view = delegate->logTextView->viewport();
    QTest::mouseDClick(view, Qt::LeftButton, {}, QPoint(30, 16));
    EXPECT_EQ(delegate->logTextView->textCursor().selectedText().toStdString(), "Embedded");
}

TEST_F(Log, ShowsNoTextCursor) {
    const auto picture = [this] { return delegate->logTextView->viewport()->grab().toImage(); };
    delegate->refreshButton->setFocus(Qt::OtherFocusReason);
    const QImage without = picture();
    delegate->logTextView->setFocus(Qt::OtherFocusReason);
    ASSERT_TRUE(waitUntil([this] { return delegate->logTextView->hasFocus(); }));
    EXPECT_EQ(picture(), without);
}

TEST_F(Log, CannotBeTypedInto) {
    delegate->logTextView->setFocus();
    QTest::keyClick(delegate->window->windowHandle(), Qt::Key_X);
    QTest::keyClick(delegate->window->windowHandle(), Qt::Key_Delete);
    QTest::keyClick(delegate->window->windowHandle(), Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(Log, KeepsASelectionWhileTextIsAppended) {
    QTest::mouseDClick(delegate->logTextView->viewport(), Qt::LeftButton, {}, QPoint(30, 16));
    appendLines(3);
    EXPECT_EQ(delegate->logTextView->textCursor().selectedText().toStdString(), "Embedded");
}

TEST_F(Log, GrowsBehindAnOpenAlert) {
    std::string behind;
    const AlertAnswer answer(inOrder(
        [&](QMessageBox&) {
            std::thread([this] { delegate->appendLog("from a thread", true); }).join();
            behind = takeLog();
        },
        click("OK")));
    delegate->showError("x");
    EXPECT_EQ(behind, "from a thread\n");
}

// fault: the window is gone when a text is to be shown
TEST_F(Log, DropsTextsWhenTheDelegateIsGone) {
    delegate->appendLog("nobody reads this", true);
    const std::weak_ptr<AppDelegate> gone = delegate;
    delegate.reset();
    EXPECT_TRUE(gone.expired());
    settle();
}

}  // namespace

}  // namespace qelmo
