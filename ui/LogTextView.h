#pragma once

#include <QPlainTextEdit>
#include <string>
#include <vector>

namespace qelmo {

/// The append-only log: plain text of one font and colour that can be selected and copied, with
/// the mouse or with keys.
class LogTextView : public QPlainTextEdit {
public:
    LogTextView(const QFont& font, const QColor& text, const QColor& ground, int inset, QWidget* parent);

    /// Appends the text as it stands and shows the end of the log, wherever the user had scrolled to.
    void append(const std::string& text);

    /// Everything that was appended; what is copied is a part of it. The document, which an assistive tool
    /// reads, has more paragraphs than this text has lines: a line that is too long to be laid out at once is
    /// kept in several.
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

    /// The ends of paragraphs that no text brought, in the document's positions, ascending. They stay valid:
    /// the log only grows.
    std::vector<int> addedBreaks_;
};

}  // namespace qelmo
