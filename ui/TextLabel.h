#pragma once

#include <QLabel>
#include <QStringList>
#include <limits>

namespace qelmo {

/// A label that shows its text as it stands: never markup, wrapped at words. A word that is wider than the
/// label is broken.
class TextLabel : public QLabel {
public:
    TextLabel(const QString& text, const QFont& font, const QColor& colour, QWidget* parent);

    void setColour(const QColor& colour);
    [[nodiscard]] QColor colour() const;

    /// When more would follow, the last line ends in "…".
    void setMaximumLines(int lines);
    /// The text as it is drawn.
    [[nodiscard]] QStringList lines() const { return linesInWidth(width()); }

    /// From now on an assistive tool says every new text as soon as it stands here, without being asked.
    /// Before Qt 6.8 it only hears of the label's new name, and decides itself.
    void announceTexts() { announcesTexts_ = true; }
    void setText(const QString& text);

    [[nodiscard]] int heightForWidth(int width) const override;
    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    [[nodiscard]] QStringList linesInWidth(int width) const;
    [[nodiscard]] int lineHeight() const;

    int maximumLines_ = std::numeric_limits<int>::max();
    bool announcesTexts_ = false;
};

}  // namespace qelmo
