#include "ui/LogTextView.h"

#include <QEvent>
#include <QPainter>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

#include "ui/Colour.h"

namespace qelmo {

namespace {

/// A line that grows is laid out anew with every piece. Without spaces, looking for word boundaries makes
/// that many times as slow, so a tool that forgets its line feeds gets its text wrapped anywhere.
constexpr int longestWordWrappedLine = 4096;

constexpr int focusRingWidth = 2;

}  // namespace

LogTextView::LogTextView(const QFont& font, const QColor& text, const QColor& ground, int inset,
                         QWidget* parent)
    : QPlainTextEdit(parent) {
    setReadOnly(true);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setUndoRedoEnabled(false);
    // It would promise that something can be typed here.
    setCursorWidth(0);
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
    QTextCursor selected = textCursor();
    const int anchor = selected.anchor(), position = selected.position();
    QTextCursor end(document());
    end.movePosition(QTextCursor::End);
    end.insertText(QString::fromStdString(text));
    if (anchor != position) {
        // A selection that touches the end has grown with the text.
        selected.setPosition(anchor);
        selected.setPosition(position, QTextCursor::KeepAnchor);
        setTextCursor(selected);
    }
    if (end.block().length() > longestWordWrappedLine) setWordWrapMode(QTextOption::WrapAnywhere);
    verticalScrollBar()->setValue(verticalScrollBar()->maximum());
}

bool LogTextView::showsFocus() const {
    return hasFocus() && window()->testAttribute(Qt::WA_KeyboardFocusChange);
}

bool LogTextView::event(QEvent* event) {
    if (event->type() == QEvent::FocusIn || event->type() == QEvent::FocusOut) viewport()->update();
    return QPlainTextEdit::event(event);
}

void LogTextView::paintEvent(QPaintEvent* event) {
    QPlainTextEdit::paintEvent(event);
    if (!showsFocus()) return;
    QPainter painter(viewport());
    painter.setPen(QPen(Palette::accent(), focusRingWidth, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
    painter.drawRect(viewport()->rect().adjusted(1, 1, -1, -1));
}

void LogTextView::scrollContentsBy(int dx, int dy) {
    QPlainTextEdit::scrollContentsBy(dx, dy);
    // The ring does not scroll with the text.
    if (showsFocus()) viewport()->update();
}

std::string logText(std::string text, bool addNewline) {
    if (addNewline && !text.ends_with('\n')) text += '\n';
    return text;
}

}  // namespace qelmo
