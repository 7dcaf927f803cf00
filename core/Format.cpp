#include "core/Format.h"

namespace {

constexpr std::string_view directives[] = {"@", "i", "lu", "s"};

/// The length of the directive that `text` begins with, 0 if there is none.
std::size_t directiveLength(std::string_view text) {
    for (std::string_view directive : directives) {
        if (text.starts_with(directive))
            return directive.size();
    }
    return 0;
}

} // namespace

void appendFormat(BoundedText& out, std::string_view format,
                  std::span<const FormatArgument> arguments) {
    std::size_t next = 0;
    while (!format.empty() && !out.closed()) {
        const std::size_t sign = format.find('%');
        out.append(format.substr(0, sign));
        if (sign == std::string_view::npos)
            return;
        format.remove_prefix(sign + 1);
        if (const std::size_t length = directiveLength(format)) {
            if (next < arguments.size())
                arguments[next++].describeTo(out);
            else
                out.append("(null)");
            format.remove_prefix(length);
        } else {
            out.append("%");
            if (format.starts_with('%'))
                format.remove_prefix(1);
        }
    }
}
