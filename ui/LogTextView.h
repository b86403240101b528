#pragma once

#include <QPlainTextEdit>
#include <string>
#include <vector>

namespace qelmo {

/// The append-only log: plain text in one font and one colour. The user can select and copy it with the mouse
/// or the keyboard.
class LogTextView : public QPlainTextEdit {
public:
    LogTextView(const QFont& font, const QColor& text, const QColor& ground, int inset, QWidget* parent);

    /// Appends the text unchanged and scrolls to the end of the log, wherever the user had scrolled to.
    void append(const std::string& text);

    /// Everything that was appended. The text that the user copies is always a part of this text. The
    /// document, which assistive tools read, may have more paragraphs than this text has lines: a very long
    /// line is stored as several paragraphs.
    [[nodiscard]] QString toPlainText() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    [[nodiscard]] QMimeData* createMimeDataFromSelection() const override;

private:
    void breakAfterLongestLength(const QTextBlock& paragraph);
    /// `start`: where the text begins in the document.
    [[nodiscard]] QString withoutAddedBreaks(const QString& text, int start) const;
    [[nodiscard]] bool showsFocus() const;

    /// Document positions of the paragraph ends that were added, ascending. They stay valid because the log
    /// only grows.
    std::vector<int> addedBreaks_;
};

}  // namespace qelmo
