#pragma once

#include <QBasicTimer>
#include <QProgressBar>

namespace qelmo {

/// An indeterminate progress bar that stays visible, without motion, while it is stopped. It does its own
/// painting, because Qt's styles draw nothing while the bar is stopped, and their animation cannot be stopped
/// once it has started.
class ActivityBar : public QProgressBar {
public:
    ActivityBar(const QColor& groove, const QColor& block, QWidget* parent);

    /// Starts the animation from the beginning, or stops it. Does nothing if nothing changes.
    void setAnimating(bool wanted);
    [[nodiscard]] bool isAnimating() const { return timer_.isActive(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    void timerEvent(QTimerEvent* event) override;

private:
    const QColor groove_;
    const QColor block_;
    QBasicTimer timer_;
    int step_ = 0;
};

}  // namespace qelmo
