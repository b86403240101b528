#include "ui/LogTextView.h"

#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

namespace qelmo {

namespace {

/// A line that grows is laid out anew with every piece. Without spaces, looking for word boundaries makes
/// that many times as slow, so a tool that forgets its line feeds gets its text wrapped anywhere.
constexpr int longestWordWrappedLine = 4096;

}  // namespace

LogTextView::LogTextView(const QFont& font, const QColor& text, const QColor& ground, int inset,
                         QWidget* parent)
    : QPlainTextEdit(parent) {
    setReadOnly(true);
    setUndoRedoEnabled(false);
    setFont(font);
    setFrameShape(QFrame::NoFrame);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    document()->setDocumentMargin(inset);

    QPalette colours = palette();
    colours.setColor(QPalette::Base, ground);
    colours.setColor(QPalette::Text, text);
    setPalette(colours);
}

void LogTextView::append(const std::string& text) {
    QTextCursor end(document());
    end.movePosition(QTextCursor::End);
    end.insertText(QString::fromStdString(text));
    if (end.block().length() > longestWordWrappedLine) setWordWrapMode(QTextOption::WrapAnywhere);
    verticalScrollBar()->setValue(verticalScrollBar()->maximum());
}

std::string logText(std::string text, bool addNewline) {
    if (addNewline && !text.ends_with('\n')) text += '\n';
    return text;
}

}  // namespace qelmo
