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

void requireCut(std::string_view cut, const std::string& whole, std::size_t limit) {
    constexpr std::string_view mark = "<…>";
    require(cut.size() <= limit, "a cut text keeps its limit");
    require(!base::isValidUtf8(whole) || base::isValidUtf8(cut), "no character is cut in two");
    if (limit < mark.size()) {
        require(cut.empty(), "no mark without room for it");
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

    BoundedText limited(limit);
    appendFormat(limited, format, arguments);
    require(limited.full() == (whole.size() > limit), "full means that something was dropped");
    const std::string cut = limited.take();
    if (whole.size() <= limit)
        require(cut == whole, "what fits is not changed");
    else
        requireCut(cut, whole, limit);
    return 0;
}
