#include "ui/ColouredBox.h"

#include <QPainter>

namespace qelmo {

ColouredBox::ColouredBox(const QColor& colour, int cornerRadius, QWidget* parent)
    : QWidget(parent), colour_(colour), cornerRadius_(cornerRadius) {}

void ColouredBox::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour_);
    painter.drawRoundedRect(rect(), cornerRadius_, cornerRadius_);
}

}  // namespace qelmo
