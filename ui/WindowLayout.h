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

/// Builds the delegate's window. Sets the delegate's fields for the window and for the controls that change
/// later. The delegate then fills the controls from its WindowState. The window is not shown yet.
void buildWindowLayout(AppDelegate& delegate);

/// The position of the top left corner of the window's frame: centred on the screen, or moved into
/// `available` if panels or a small screen leave no room there. The title bar is always inside.
[[nodiscard]] QPoint windowPosition(const QRect& screen, const QRect& available);

}  // namespace qelmo
