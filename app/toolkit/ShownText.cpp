#include "app/toolkit/ShownText.h"

namespace {

bool turnsText(char16_t character) {
    return character == 0x061C || character == 0x200E || character == 0x200F ||
           (character >= 0x202A && character <= 0x202E) ||
           (character >= 0x2066 && character <= 0x2069);
}

bool isObeyed(QChar character) {
    const QChar::Category category = character.category();
    return category == QChar::Other_Control || category == QChar::Separator_Line ||
           category == QChar::Separator_Paragraph || turnsText(character.unicode());
}

} // namespace

QString shownText(const std::string& text) {
    QString shown = QString::fromStdString(text);
    for (QChar& character : shown) {
        if (character != '\n' && character != '\t' && isObeyed(character))
            character = '?';
    }
    return shown;
}

QString shownLine(const std::string& text) {
    return inOneLine(shownText(text)).replace('\t', ' ');
}

QString inOneLine(QString text) {
    constexpr QChar signForNewLine(0x2424);
    return text.replace('\n', signForNewLine);
}

QString toolTipOf(const QString& text) {
    return text.isEmpty() ? QString()
                          : "<p style='white-space: pre-wrap'>" + text.toHtmlEscaped() + "</p>";
}
