#include <QApplication>
#include <QClipboard>
#include <QScrollBar>
#include <QTest>
#include <QTextBlock>
#include <QWindow>

#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/LogTextView.h"

namespace qelmo {

namespace {

std::string repeated(const QString& text, int times) {
    return text.repeated(times).toStdString();
}

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

    /// The lengths of the paragraphs in which the log is laid out, without their ends.
    std::vector<qsizetype> paragraphLengths() const {
        std::vector<qsizetype> lengths;
        for (QTextBlock block = delegate->logTextView->document()->begin(); block.isValid();
             block = block.next())
            lengths.push_back(block.text().size());
        return lengths;
    }

    std::string copied() const {
        delegate->logTextView->selectAll();
        delegate->logTextView->copy();
        return QApplication::clipboard()->text().toStdString();
    }

    QScrollBar* scrollBar() const { return delegate->logTextView->verticalScrollBar(); }
};

TEST_F(Log, AppendsEveryTextUnchangedAndALineFeedOnRequest) {
    EXPECT_EQ(afterAppending("abc", true), "abc\n");
    EXPECT_EQ(afterAppending("abc\n", true), "abc\n");
    EXPECT_EQ(afterAppending("", true), "\n");
    EXPECT_EQ(afterAppending("", false), "");
    EXPECT_EQ(afterAppending("<b>bold</b> & <script>", true), "<b>bold</b> & <script>\n");
    for (const char* const piece : {"Connecting", ".", ".", "\n", "\n", "Chip is\n"})
        delegate->appendLog(piece, false);
    EXPECT_EQ(takeLog(), "Connecting..\n\nChip is\n");
}

TEST_F(Log, ScrollsToItsEndAfterEveryTextAndKeepsAllOfIt) {
    std::string expected;
    for (int line = 1; line <= 5000; ++line) {
        delegate->appendLog("line " + std::to_string(line), true);
        expected += "line " + std::to_string(line) + "\n";
    }
    EXPECT_EQ(takeLog(), expected);
    for (const char* const text : {"", "the newest\n"}) {
        scrollBar()->setValue(20);
        delegate->appendLog(text, false);
        settle();
        EXPECT_EQ(scrollBar()->value(), scrollBar()->maximum());
    }
    const QRect lastLine =
        delegate->logTextView->cursorRect(QTextCursor(delegate->logTextView->document()->lastBlock()));
    EXPECT_TRUE(delegate->logTextView->viewport()->rect().contains(lastLine.center()));
}

// fault: the layout of a text without line feeds would take minutes, because of its length or its characters
TEST_F(Log, SplitsALongLineIntoParagraphsForLayout) {
    for (const std::string& text :
         {std::string(1'000'000, 'x'), repeated(QStringLiteral("\u0301"), 300'000),
          repeated(QStringLiteral("word "), 400'000), repeated(QStringLiteral("\U0001F600"), 10'000)}) {
        EXPECT_EQ(afterAppending(text, true), text + '\n');
        EXPECT_THAT(paragraphLengths(), testing::Each(testing::Le(4096)));
    }
    std::string line;
    for (int piece = 0; piece < 128; ++piece) {
        delegate->appendLog(std::string(65'536, static_cast<char>('a' + piece % 26)), false);
        line += std::string(65'536, static_cast<char>('a' + piece % 26));
    }
    EXPECT_EQ(takeLog(), line);
    EXPECT_THAT(paragraphLengths(), testing::Each(testing::Le(4096)));
}

TEST_F(Log, IsCopiedWithItsOwnLineFeedsAndNoOthers) {
    const std::string before = copied();
    const std::string text = "short\n" + std::string(4096, 'a') + "\n" + std::string(4097, 'b') + "\n\n" +
                             std::string(4095, 'c') + "\U0001F600" + std::string(9'000, 'd') + "\nshort\n";
    delegate->appendLog(text, false);
    settle();
    EXPECT_EQ(copied(), before + text);
}

TEST_F(Log, CanBeSelectedAndCopiedAndKeepsTheSelectionWhileTextIsAppended) {
    QTest::mouseDClick(delegate->logTextView->viewport(), Qt::LeftButton, {}, QPoint(30, 16));
    for (const char* const line : {"line 1", "line 2"}) delegate->appendLog(line, true);
    settle();
    EXPECT_EQ(delegate->logTextView->textCursor().selectedText().toStdString(), "Embedded");
    delegate->logTextView->setFocus();
    QTest::keyClick(delegate->window->windowHandle(), Qt::Key_A, Qt::ControlModifier);
    delegate->appendLog("line 3", true);
    settle();
    QTest::keyClick(delegate->window->windowHandle(), Qt::Key_C, Qt::ControlModifier);
    EXPECT_THAT(QApplication::clipboard()->text().toStdString(), testing::EndsWith("line 1\nline 2\n"));
    QTest::keyClick(delegate->window->windowHandle(), Qt::Key_Home, Qt::ControlModifier);
    QTest::keyClick(delegate->window->windowHandle(), Qt::Key_Right, Qt::ShiftModifier);
    EXPECT_EQ(delegate->logTextView->textCursor().selectedText().toStdString(), "E");
}

}  // namespace
}  // namespace qelmo
