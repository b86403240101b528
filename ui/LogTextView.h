#pragma once

#include <QPlainTextEdit>
#include <string>

namespace qelmo {

/// The append-only log: plain text of one font and colour that can be selected and copied, with
/// the mouse or with keys.
class LogTextView : public QPlainTextEdit {
public:
    LogTextView(const QFont& font, const QColor& text, const QColor& ground, int inset, QWidget* parent);

    /// Appends the text as it stands and shows the end of the log, wherever the user had scrolled to.
    void append(const std::string& text);

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;

private:
    [[nodiscard]] bool showsFocus() const;
};

/// The text of one log request: with a line feed behind it when one is asked for and not there yet.
[[nodiscard]] std::string logText(std::string text, bool addNewline);

}  // namespace qelmo
