#include "base/Utf8.h"
#include "core/PropertyList.h"
#include "tests/fuzz/FuzzInput.h"

namespace {

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text)
        result += c == '&' ? "&amp;" : c == '<' ? "&#60;" : c == '>' ? "&#x3e;" : std::string(1, c);
    return result;
}

} // namespace

/// A property list; taken in two, also the key and the value of one that is well-formed.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::string_view bytes = FuzzInput(data, size).rest();
    const bool isBinary = bytes.starts_with("bplist00");
    if (const auto strings = propertyListStrings(bytes)) {
        for (const auto& [key, value] : *strings) {
            require(std::max(key.size(), value.size()) <= 2 * size, "no string out of nothing");
            require((base::isValidUtf8(key) && base::isValidUtf8(value)) ||
                        (!isBinary && !base::isValidUtf8(bytes)),
                    "strings are UTF-8");
        }
    } else {
        require(bytes.find("<plist") == std::string_view::npos, "XML is recognised");
    }

    const std::string key(input.piece());
    const std::string value(input.rest());
    const auto read =
        propertyListStrings("<plist version=\"1.0\"><dict><key>" + escaped(key) + "</key><string>" +
                            escaped(value) + "</string></dict></plist>");
    require(read && read->size() == 1 && read->begin()->first == key, "the key comes back");
    require(read->begin()->second == value, "the value comes back");
    return 0;
}
