#include "core/Text.h"

#include "base/Utf8.h"

#include <algorithm>
#include <optional>

#include <locale.h>
#include <wctype.h>
#ifdef __APPLE__
#include <xlocale.h>
#endif

namespace {

char lowercasedByte(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

char32_t lowercasedCharacter(char32_t character) {
    // Not the locale of the process, which may know no letters beyond ASCII. Never freed: in use to
    // the end.
    static const locale_t unicode = [] {
        const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return locale != nullptr ? locale : newlocale(LC_CTYPE_MASK, "UTF-8", nullptr);
    }();
    if (character < 0x80 || unicode == nullptr)
        return character < 0x80
                   ? static_cast<char32_t>(lowercasedByte(static_cast<char>(character)))
                   : character;
    return static_cast<char32_t>(towlower_l(static_cast<wint_t>(character), unicode));
}

} // namespace

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view whiteSpace = " \t\n\v\f\r";
    const std::size_t first = text.find_first_not_of(whiteSpace);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(whiteSpace) - first + 1);
}

std::vector<std::string_view> split(std::string_view text, std::string_view separator) {
    std::vector<std::string_view> pieces;
    std::size_t end = 0;
    while ((end = text.find(separator)) != std::string_view::npos) {
        pieces.push_back(text.substr(0, end));
        text.remove_prefix(end + separator.size());
    }
    pieces.push_back(text);
    return pieces;
}

std::string lowercased(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), lowercasedByte);
    return result;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    const std::optional<std::u32string> left = base::decodedUtf8(a);
    const std::optional<std::u32string> right = base::decodedUtf8(b);
    if (!left || !right)
        return std::ranges::equal(a, b, {}, lowercasedByte, lowercasedByte);
    return std::ranges::equal(*left, *right, {}, lowercasedCharacter, lowercasedCharacter);
}
