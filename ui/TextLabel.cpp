#include "ui/TextLabel.h"

#include <QAccessible>
#include <QFontMetrics>
#include <QPalette>
#include <QtMath>

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
    // Every line takes whole pixels.
    setMaximumHeight(lines * qCeil(QFontMetricsF(font()).lineSpacing()));
    setAlignment(Qt::AlignLeft | Qt::AlignTop);
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
