#include "base/Printable.h"

#include "base/Utf8.h"

namespace base {

std::string printable(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = utf8Length(text);
        const auto lead = static_cast<unsigned char>(text[0]);
        const bool isC1 = lead == 0xC2 && length == 2 && static_cast<unsigned char>(text[1]) < 0xA0;
        if (length == 0 || lead < 0x20 || lead == 0x7F || isC1)
            shown += '?';
        else
            shown += text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return shown;
}

} // namespace base
