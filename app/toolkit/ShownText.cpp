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

QString shownText(const QString& text) {
    QString shown = text;
    for (QChar& character : shown) {
        if (character != '\n' && character != '\t' && isObeyed(character))
            character = '?';
    }
    return shown;
}

QString shownText(const std::string& text) {
    return shownText(QString::fromStdString(text));
}

QString shownLine(const QString& text) {
    return shownText(text).replace('\n', QChar(0x2424)).replace('\t', ' ');
}

QString shownLine(const std::string& text) {
    return shownLine(QString::fromStdString(text));
}

QString toolTipOf(const QString& text) {
    return text.isEmpty()
               ? QString()
               : "<p style='white-space: pre-wrap'>" + shownText(text).toHtmlEscaped() + "</p>";
}
