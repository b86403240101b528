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

QString withoutEnding(QString line) {
    while (!line.isEmpty() && line.back().isSpace()) line.chop(1);
    return line;
}

}  // namespace

QStringList shownLines(const QString& text, const QFont& font, int width, int maximumLines) {
    QString laidOut = text.left(longestLaidOutText);
    laidOut.replace(QLatin1Char('\n'), QChar::LineSeparator);
    QTextLayout layout(laidOut, font);
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
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

    if (end < text.size() && !lines.isEmpty())
        lines.back() = QFontMetrics(font).elidedText(lines.back() + moreFollows, Qt::ElideRight, width);
    return lines;
}

}  // namespace qelmo
