#include "ui/ActivityBar.h"

#include <QPainter>
#include <QTimerEvent>

namespace qelmo {

constexpr int frameMilliseconds = 40;
constexpr int stepsThere = 40;
constexpr int grooveHeight = 6;

ActivityBar::ActivityBar(const QColor& groove, const QColor& block, QWidget* parent)
    : QProgressBar(parent), groove_(groove), block_(block) {
    setRange(0, 0);
    setTextVisible(false);
    setAccessibleDescription(QStringLiteral("Idle"));
}

void ActivityBar::setAnimating(bool wanted) {
    if (wanted == isAnimating()) return;
    step_ = 0;
    if (wanted)
        timer_.start(frameMilliseconds, this);
    else
        timer_.stop();
    setAccessibleDescription(wanted ? QStringLiteral("Busy") : QStringLiteral("Idle"));
    update();
}

void ActivityBar::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);

    const QRectF groove(0, (height() - grooveHeight) / 2.0, width(), grooveHeight);
    constexpr double radius = grooveHeight / 2.0;
    painter.setBrush(groove_);
    painter.drawRoundedRect(groove, radius, radius);
    if (!isAnimating()) return;

    // The block moves to the right and back again.
    const int position = step_ <= stepsThere ? step_ : 2 * stepsThere - step_;
    const double blockWidth = groove.width() / 4;
    const double left = (groove.width() - blockWidth) * position / stepsThere;
    painter.setBrush(block_);
    painter.drawRoundedRect(QRectF(left, groove.top(), blockWidth, groove.height()), radius, radius);
}

void ActivityBar::timerEvent(QTimerEvent* event) {
    if (event->timerId() != timer_.timerId()) return QProgressBar::timerEvent(event);
    step_ = (step_ + 1) % (2 * stepsThere);
    update();
}

}  // namespace qelmo
