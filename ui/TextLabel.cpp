#include "ui/TextLabel.h"

#include <QAccessible>
#include <QFontMetrics>
#include <QPainter>
#include <QPalette>
#include <QTextLayout>
#include <QtMath>

namespace qelmo {

/// More than any label or alert can show. Laying out characters that combine takes time that grows with the
/// square of their number.
constexpr qsizetype longestLaidOutText = 4096;

QStringList shownLines(const QString& text, const QFont& font, int width, int maximumLines,
                       QTextOption::WrapMode wrapMode) {
    QString laidOut = text.left(longestLaidOutText);
    laidOut.replace(QLatin1Char('\n'), QChar::LineSeparator);
    QTextLayout layout(laidOut, font);
    QTextOption option;
    option.setWrapMode(wrapMode);
    layout.setTextOption(option);

    QStringList lines;
    qsizetype end = 0;
    layout.beginLayout();
    while (lines.size() < maximumLines) {
        QTextLine line = layout.createLine();
        if (!line.isValid()) break;
        line.setLineWidth(width);
        QString shown = laidOut.mid(line.textStart(), line.textLength());
        while (!shown.isEmpty() && shown.back().isSpace()) shown.chop(1);
        lines.append(shown);
        end = line.textStart() + line.textLength();
    }
    layout.endLayout();
    if (end < text.size() && !lines.isEmpty())
        lines.back() =
            QFontMetrics(font).elidedText(lines.back() + QStringLiteral("…"), Qt::ElideRight, width);
    return lines;
}

QString fittingText(const QString& text, const QFont& font, int width, int maximumLines) {
    const QStringList shown = shownLines(text, font, width, maximumLines);
    const QStringList atWords = shownLines(text, font, width, maximumLines + 1, QTextOption::WordWrap);
    const bool isShownWhole = text.size() <= longestLaidOutText && atWords == shown;
    return isShownWhole ? text : shown.join(QLatin1Char('\n'));
}

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
    // The height of a line is a whole number of pixels.
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
