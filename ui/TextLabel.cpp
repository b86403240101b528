#include "ui/TextLabel.h"

#include <QAccessible>
#include <QFontMetrics>
#include <QPainter>
#include <QPalette>
#include <QtMath>

#include "ui/ShownLines.h"

namespace qelmo {

TextLabel::TextLabel(const QString& text, const QFont& font, const QColor& colour, QWidget* parent)
    : QLabel(parent) {
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    setFont(font);
    setColour(colour);
    QLabel::setText(text);
}

void TextLabel::setColour(const QColor& colour) {
    QPalette changed = palette();
    changed.setColor(QPalette::WindowText, colour);
    setPalette(changed);
}

QColor TextLabel::colour() const {
    return palette().color(QPalette::WindowText);
}

void TextLabel::setMaximumLines(int lines) {
    maximumLines_ = lines;
    setMaximumHeight(lines * lineHeight());
}

QStringList TextLabel::linesInWidth(int width) const {
    return shownLines(text(), font(), width, maximumLines_);
}

int TextLabel::lineHeight() const {
    // Every line takes whole pixels.
    return qCeil(QFontMetricsF(font()).lineSpacing());
}

int TextLabel::heightForWidth(int width) const {
    return static_cast<int>(linesInWidth(width).size()) * lineHeight();
}

QSize TextLabel::sizeHint() const {
    return {0, lineHeight()};
}

void TextLabel::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setPen(colour());
    const QStringList shown = lines();
    QRect line(0, (height() - static_cast<int>(shown.size()) * lineHeight()) / 2, width(), lineHeight());
    for (const QString& text : shown) {
        painter.drawText(line, Qt::AlignLeft | Qt::AlignTop | Qt::TextSingleLine, text);
        line.translate(0, lineHeight());
    }
}

void TextLabel::setText(const QString& text) {
    QLabel::setText(text);
#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
    if (!announcesTexts_) return;
    QAccessibleAnnouncementEvent announcement(this, text);
    QAccessible::updateAccessibility(&announcement);
#endif
}

}  // namespace qelmo
