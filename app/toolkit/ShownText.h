#pragma once

#include <QString>

#include <string>

// Names and what scripts say, as they can be shown. A control character, or one that turns the
// direction of the text (Bidi_Control of Unicode), is a question mark: it would be obeyed, and what
// stands around it be read wrongly. Any thread.

/// On one line: a line break is the sign for it.
[[nodiscard]] QString shownLine(const std::string& text);
[[nodiscard]] QString shownLine(const QString& text);
/// With its line breaks and tabulators.
[[nodiscard]] QString shownText(const std::string& text);
[[nodiscard]] QString shownText(const QString& text);
/// A tool tip of shownText(), folded to lines: a plain one would not be folded, and a text that
/// looks like markup would be taken for it. Empty for an empty text.
[[nodiscard]] QString toolTipOf(const QString& text);
