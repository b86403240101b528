#pragma once

#include <QLabel>
#include <QStringList>
#include <QTextOption>
#include <limits>

namespace qelmo {

/// Breaks a text into lines no wider than `width`: after a word, or inside a word that is wider than a line.
/// Returns at most `maximumLines` lines; if text is left over, the last line ends in "…". Even a very long
/// text takes only a limited time.
[[nodiscard]] QStringList shownLines(
    const QString& text, const QFont& font, int width, int maximumLines,
    QTextOption::WrapMode wrapMode = QTextOption::WrapAtWordBoundaryOrAnywhere);

/// The text for a label that wraps at words: `text` itself if the label shows all of it, otherwise the lines
/// that the label shows, joined by line feeds.
[[nodiscard]] QString fittingText(const QString& text, const QFont& font, int width, int maximumLines);

/// A label that shows plain text, never markup, broken into lines by `shownLines`.
class TextLabel : public QLabel {
public:
    TextLabel(const QString& text, const QFont& font, const QColor& colour, QWidget* parent);

    void setColour(const QColor& colour);
    [[nodiscard]] QColor colour() const;

    /// If text is left over, the last line ends in "…".
    void setMaximumLines(int lines);
    /// The lines as they are drawn.
    [[nodiscard]] QStringList lines() const { return linesInWidth(width()); }

    /// From now on assistive tools announce every new text at once. Before Qt 6.8 they are only told that the
    /// name of the label has changed. They decide themselves whether to announce it.
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
