#pragma once

#include <QBasicTimer>
#include <QProgressBar>

namespace qelmo {

/// An indeterminate progress bar that is visible and still while it is stopped. It paints itself: a toolkit
/// style would animate for ever once it had been started, and would show nothing while stopped.
class ActivityBar : public QProgressBar {
public:
    ActivityBar(const QColor& groove, const QColor& block, QWidget* parent);

    /// Starts from the beginning, or stops; does nothing when it already is so.
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
