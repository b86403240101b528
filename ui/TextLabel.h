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

    /// From now on an assistive tool says every new text as soon as it stands here, without being asked.
    /// Before Qt 6.8 it only hears of the label's new name, and decides itself.
    void announceTexts() { announcesTexts_ = true; }
    void setText(const QString& text);

private:
    bool announcesTexts_ = false;
};

}  // namespace qelmo
