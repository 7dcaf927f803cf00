#include "base/Utf8.h"

namespace base {

std::size_t utf8Length(std::string_view bytes) {
    if (bytes.empty())
        return 0;
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
        return 1;
    const std::size_t length = lead >= 0xC2 && lead <= 0xDF   ? 2
                               : lead >= 0xE0 && lead <= 0xEF ? 3
                               : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                              : 0;
    if (length == 0 || bytes.size() < length)
        return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if (!isContinuation(bytes[i]))
            return 0;
    }
    const bool overlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
    const bool surrogate = lead == 0xED && byte(1) >= 0xA0;
    const bool beyondLast = lead == 0xF4 && byte(1) >= 0x90;
    return overlong || surrogate || beyondLast ? 0 : length;
}

std::optional<std::u32string> decodedUtf8(std::string_view bytes) {
    std::u32string characters;
    while (!bytes.empty()) {
        const std::size_t length = utf8Length(bytes);
        if (length == 0)
            return std::nullopt;
        // The lead byte's upper bits tell the length, the rest belongs to the character.
        auto character = static_cast<char32_t>(static_cast<unsigned char>(bytes[0]) &
                                               (length == 1 ? 0x7FU : 0xFFU >> (length + 1)));
        for (char continuation : bytes.substr(1, length - 1))
            character = character << 6U | (static_cast<unsigned char>(continuation) & 0x3FU);
        characters += character;
        bytes.remove_prefix(length);
    }
    return characters;
}

void appendUtf8(std::string& bytes, char32_t character) {
    const auto append = [&](char32_t byte) { bytes += static_cast<char>(byte); };
    if (character >= 0xD800 && character <= 0xDFFF)
        character = 0xFFFD;
    if (character < 0x80) {
        append(character);
        return;
    }
    const unsigned continuations = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    append((0xFF00U >> (continuations + 1) & 0xFFU) | character >> (6 * continuations));
    for (unsigned i = continuations; i-- > 0;)
        append(0x80U | (character >> (6 * i) & 0x3FU));
}

std::string utf8OfUtf16(Bytes bytes) {
    const auto unitAt = [&](std::size_t at) {
        return at + 1 < bytes.size() ? char32_t{bytes[at]} << 8U | bytes[at + 1] : 0;
    };
    std::string text;
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
        char32_t character = unitAt(at);
        const bool isHigh = character >= 0xD800 && character < 0xDC00;
        if (const char32_t low = unitAt(at + 2); isHigh && low >= 0xDC00 && low < 0xE000) {
            character = 0x10000 + ((character - 0xD800) << 10U) + (low - 0xDC00);
            at += 2;
        }
        appendUtf8(text, character);
    }
    return text;
}

bool isValidUtf8(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t length = utf8Length(bytes);
        if (length == 0)
            return false;
        bytes.remove_prefix(length);
    }
    return true;
}

} // namespace base
