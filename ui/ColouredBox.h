#pragma once

#include <QColor>
#include <QWidget>

namespace qelmo {

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

}  // namespace qelmo
