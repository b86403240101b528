#include "ui/ShownLines.h"

#include <QFontMetrics>
#include <QTextLayout>
#include <QTextOption>

namespace qelmo {

namespace {

/// More than any label or alert has place for. Laying out a text whose characters combine takes the square of
/// its length.
constexpr qsizetype longestLaidOutText = 4096;

constexpr QChar moreFollows(0x2026);

struct Lines {
    QStringList lines;
    bool areAll;
};

QString withoutEnding(QString line) {
    while (!line.isEmpty() && line.back().isSpace()) line.chop(1);
    return line;
}

Lines brokenText(const QString& text, const QFont& font, int width, int maximumLines,
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
        lines.append(withoutEnding(laidOut.mid(line.textStart(), line.textLength())));
        end = line.textStart() + line.textLength();
    }
    layout.endLayout();
    return {lines, end == text.size()};
}

}  // namespace

QStringList shownLines(const QString& text, const QFont& font, int width, int maximumLines) {
    Lines broken = brokenText(text, font, width, maximumLines, QTextOption::WrapAtWordBoundaryOrAnywhere);
    if (!broken.areAll && !broken.lines.isEmpty()) {
        QString& last = broken.lines.back();
        last = QFontMetrics(font).elidedText(last + moreFollows, Qt::ElideRight, width);
    }
    return broken.lines;
}

QString fittingText(const QString& text, const QFont& font, int width, int maximumLines) {
    const QStringList shown = shownLines(text, font, width, maximumLines);
    const Lines atWords = brokenText(text, font, width, maximumLines, QTextOption::WordWrap);
    return atWords.areAll && atWords.lines == shown ? text : shown.join(QLatin1Char('\n'));
}

}  // namespace qelmo
