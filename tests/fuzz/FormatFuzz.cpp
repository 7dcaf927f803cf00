#include "base/Utf8.h"
#include "core/Format.h"
#include "tests/fuzz/FuzzInput.h"

#include <variant>
#include <vector>

namespace {

using Value = std::variant<std::optional<std::string>, long long, std::vector<std::string>>;

Value takeValue(FuzzInput& input) {
    switch (input.byte() % 4) {
    case 0:
        return std::optional<std::string>();
    case 1:
        return std::optional(std::string(input.piece()));
    case 2:
        return static_cast<long long>(input.byte() * input.byte()) - 1000;
    default:
        std::vector<std::string> list;
        for (std::size_t count = input.byte() % 5; count > 0; --count)
            list.emplace_back(input.piece());
        return list;
    }
}

std::string asElement(const std::string& text) {
    constexpr const char* plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
                                  "_$/:.-";
    if (!text.empty() && text.find_first_not_of(plain) == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (const char c : text)
        quoted += c == '\n' ? "\\n" : c == '"' ? "\\\"" : c == '\\' ? "\\\\" : std::string(1, c);
    return quoted + "\"";
}

std::string described(const Value& value) {
    if (const auto* text = std::get_if<std::optional<std::string>>(&value))
        return text->value_or("(null)");
    if (const auto* number = std::get_if<long long>(&value))
        return std::to_string(*number);
    std::string lines;
    for (const std::string& element : std::get<std::vector<std::string>>(value))
        lines += (lines.empty() ? "\n    " : ",\n    ") + asElement(element);
    return "(" + lines + "\n)";
}

std::string expectedText(std::string_view format, const std::vector<Value>& values) {
    std::string text;
    for (std::size_t i = 0, next = 0; i < format.size(); ++i) {
        const std::string_view after = format.substr(i + 1);
        const bool isLong = after.starts_with("lu");
        const char directive = after.empty() ? '\0' : after.front();
        if (format[i] != '%') {
            text += format[i];
        } else if (isLong || directive == '@' || directive == 'i' || directive == 's') {
            text += next < values.size() ? described(values[next]) : "(null)";
            ++next;
            i += isLong ? 2 : 1;
        } else {
            text += '%';
            i += directive == '%' ? 1 : 0;
        }
    }
    return text;
}

void requireCut(std::string_view cut, const std::string& whole, std::size_t limit) {
    constexpr std::string_view mark = "<…>";
    require(cut.size() <= limit, "a cut text keeps its limit");
    if (limit < mark.size()) {
        require(cut.empty(), "no mark where there is no room for it");
        return;
    }
    bool isCutAtAMark = false;
    for (std::size_t at = cut.find(mark); at != std::string_view::npos; at = cut.find(mark, at + 1))
        isCutAtAMark = isCutAtAMark || (whole.starts_with(cut.substr(0, at)) &&
                                        whole.ends_with(cut.substr(at + mark.size())));
    require(isCutAtAMark, "around a mark is its beginning, and its end or nothing");
    require(!base::isValidUtf8(whole) || cut.size() + 6 >= limit,
            "no more is lost than a character on each side");
}

} // namespace

/// The limit, the arguments, and the format.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::size_t limit = input.byte();
    std::vector<Value> values(input.byte() % 6);
    std::vector<FormatArgument> arguments;
    for (Value& value : values) {
        value = takeValue(input);
        std::visit([&](const auto& held) { arguments.emplace_back(held); }, value);
    }
    const std::string_view format = input.rest();

    BoundedText unlimited;
    appendFormat(unlimited, format, arguments);
    const std::string whole = unlimited.take();
    require(whole == expectedText(format, values), "every directive is replaced, and only those");

    BoundedText limited(limit);
    appendFormat(limited, format, arguments);
    require(limited.full() == (whole.size() > limit), "full means that something was dropped");
    const std::string cut = limited.take();
    require(!base::isValidUtf8(whole) || base::isValidUtf8(cut), "no character is cut in two");
    if (whole.size() <= limit)
        require(cut == whole, "what fits is not changed");
    else
        requireCut(cut, whole, limit);
    return 0;
}
