#pragma once

#include <QLabel>
#include <QStringList>
#include <QTextOption>
#include <limits>

namespace qelmo {

/// The lines in which a text is shown: none is wider than `width`, broken after a word or inside a word that
/// is wider than a line. There are at most `maximumLines`; the last one ends in "…" when more would follow.
/// The time it takes is bounded, whatever the text.
[[nodiscard]] QStringList shownLines(
    const QString& text, const QFont& font, int width, int maximumLines,
    QTextOption::WrapMode wrapMode = QTextOption::WrapAtWordBoundaryOrAnywhere);

/// The text for a label that wraps at words: itself when the label shows it whole so, else its shown lines.
[[nodiscard]] QString fittingText(const QString& text, const QFont& font, int width, int maximumLines);

/// A label that shows its text as it stands, never as markup, in its shown lines.
class TextLabel : public QLabel {
public:
    TextLabel(const QString& text, const QFont& font, const QColor& colour, QWidget* parent);

    void setColour(const QColor& colour);
    [[nodiscard]] QColor colour() const;

    /// When more would follow, the last line ends in "…".
    void setMaximumLines(int lines);
    /// The text as it is drawn.
    [[nodiscard]] QStringList lines() const { return linesInWidth(width()); }

    /// From now on an assistive tool says every new text at once, without being asked. Before Qt 6.8 it only
    /// hears of the label's new name, and decides itself.
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
