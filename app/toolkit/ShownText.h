#pragma once

#include <QString>

#include <string>

// Names and what scripts say, as they can be shown. A control character, or one that turns the
// direction of the text (Bidi_Control of Unicode), is a question mark: it would be obeyed, and what
// stands around it be read wrongly. Any thread.

/// On one line: a line break is the sign for it.
[[nodiscard]] QString shownLine(const std::string& text);
/// With its line breaks and tabulators.
[[nodiscard]] QString shownText(const std::string& text);

/// The text with the sign for a new line in place of each line break: the name of a file may hold
/// one. Any thread.
[[nodiscard]] QString inOneLine(QString text);

/// A tool tip that shows the text as it is, folded to lines: a plain one would not be folded, and a
/// text that looks like markup would be taken for it. Empty for an empty text. Any thread.
[[nodiscard]] QString toolTipOf(const QString& text);
