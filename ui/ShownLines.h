#pragma once

#include <QStringList>

class QFont;

namespace qelmo {

/// The lines in which a text is shown: none is wider than `width`, broken after a word or inside a word that
/// is wider than a line. There are at most `maximumLines`; the last one ends in "…" when more would follow.
/// The time it takes is bounded, whatever the text.
[[nodiscard]] QStringList shownLines(const QString& text, const QFont& font, int width, int maximumLines);

/// The text for a label that wraps at words: itself when the label shows it whole so, else its shown lines.
[[nodiscard]] QString fittingText(const QString& text, const QFont& font, int width, int maximumLines);

}  // namespace qelmo
