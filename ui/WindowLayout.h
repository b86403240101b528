#pragma once

#include <QColor>
#include <QWidget>

namespace qelmo {

class AppDelegate;

/// A plain area of one colour, with rounded corners if wanted.
class ColouredBox : public QWidget {
public:
    ColouredBox(const QColor& colour, int cornerRadius, QWidget* parent);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    const QColor colour_;
    const int cornerRadius_;
};

/// Builds the delegate's window from top to bottom and fills its fields with the window and the controls that
/// change later. What a WindowState holds is filled in by the delegate. The window is not shown yet.
void buildWindowLayout(AppDelegate& delegate);

/// Where the corner of the window's frame goes on its screen: centred, or, where panels or a small screen
/// leave no place there, moved into `available`. The title bar is inside in any case.
[[nodiscard]] QPoint windowPosition(const QRect& screen, const QRect& available);

}  // namespace qelmo
