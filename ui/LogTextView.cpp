#include "ui/LogTextView.h"

#include <QMimeData>
#include <QPainter>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextDocumentFragment>
#include <algorithm>

#include "ui/Look.h"

namespace qelmo {

/// Qt lays out a whole paragraph again each time text is appended to it. For some paragraphs the time grows
/// with the square of the length. So a longer line is stored as several paragraphs.
constexpr int longestParagraph = 4096;

LogTextView::LogTextView(const QFont& font, const QColor& text, const QColor& ground, int inset,
                         QWidget* parent)
    : QPlainTextEdit(parent) {
    setReadOnly(true);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setUndoRedoEnabled(false);
    // A visible cursor would suggest that text can be typed here.
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
    // Prevents layout until the paragraphs have been split.
    end.beginEditBlock();
    QTextBlock paragraph = end.block();
    end.insertText(QString::fromStdString(text));
    for (; paragraph.isValid(); paragraph = paragraph.next()) breakAfterLongestLength(paragraph);
    end.endEditBlock();
    if (anchor != position) {
        // A selection that touches the end has grown with the text. Restore it.
        selected.setPosition(anchor);
        selected.setPosition(position, QTextCursor::KeepAnchor);
        setTextCursor(selected);
    }
    verticalScrollBar()->setValue(verticalScrollBar()->maximum());
}

void LogTextView::breakAfterLongestLength(const QTextBlock& paragraph) {
    // length() includes the paragraph's end.
    if (paragraph.length() - 1 <= longestParagraph) return;
    int place = paragraph.position() + longestParagraph;
    // Keep both halves of a character together.
    if (document()->characterAt(place).isLowSurrogate()) --place;
    QTextCursor cursor(document());
    cursor.setPosition(place);
    cursor.insertBlock();
    addedBreaks_.push_back(place);
}

QString LogTextView::withoutAddedBreaks(const QString& text, int start) const {
    QString whole;
    whole.reserve(text.size());
    qsizetype taken = 0;
    for (auto added = std::lower_bound(addedBreaks_.begin(), addedBreaks_.end(), start);
         added != addedBreaks_.end() && *added < start + text.size(); ++added) {
        whole += QStringView(text).sliced(taken, *added - start - taken);
        taken = *added - start + 1;
    }
    return whole += QStringView(text).sliced(taken);
}

QString LogTextView::toPlainText() const {
    return withoutAddedBreaks(QPlainTextEdit::toPlainText(), 0);
}

QMimeData* LogTextView::createMimeDataFromSelection() const {
    const QTextCursor selected = textCursor();
    auto* const copied = new QMimeData;
    copied->setText(withoutAddedBreaks(selected.selection().toPlainText(), selected.selectionStart()));
    return copied;
}

bool LogTextView::showsFocus() const {
    return hasFocus() && window()->testAttribute(Qt::WA_KeyboardFocusChange);
}

void LogTextView::paintEvent(QPaintEvent* event) {
    QPlainTextEdit::paintEvent(event);
    if (!showsFocus()) return;
    constexpr int focusRingWidth = 2;
    QPainter painter(viewport());
    painter.setPen(QPen(Palette::accent(), focusRingWidth, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
    painter.drawRect(viewport()->rect().adjusted(1, 1, -1, -1));
}

void LogTextView::scrollContentsBy(int dx, int dy) {
    QPlainTextEdit::scrollContentsBy(dx, dy);
    // The ring does not scroll with the text.
    if (showsFocus()) viewport()->update();
}

}  // namespace qelmo
