#pragma once

#include <QLabel>

namespace qelmo {

/// A label that shows its text as it stands: never markup, wrapped at words.
class TextLabel : public QLabel {
public:
    TextLabel(const QString& text, const QFont& font, const QColor& colour, QWidget* parent);

    void setColour(const QColor& colour);
    [[nodiscard]] QColor colour() const;

    /// Further lines are cut off below.
    void setMaximumLines(int lines);
};

}  // namespace qelmo
