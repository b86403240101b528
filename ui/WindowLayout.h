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

/// Builds the delegate's window and sets the fields for it and for the controls that change later. The
/// delegate fills in what a WindowState holds. The window is not shown yet.
void buildWindowLayout(AppDelegate& delegate);

/// The position of the top left corner of the window's frame: centred on the screen, or moved into
/// `available` if panels or a small screen leave no room there. The title bar is always inside.
[[nodiscard]] QPoint windowPosition(const QRect& screen, const QRect& available);

}  // namespace qelmo
