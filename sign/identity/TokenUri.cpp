#include "sign/identity/TokenUri.h"

#include "base/Number.h"

namespace sign {
namespace {

std::optional<std::string> percentDecoded(std::string_view text) {
    std::string decoded;
    for (; !text.empty(); text.remove_prefix(1)) {
        if (text[0] != '%') {
            decoded += text[0];
            continue;
        }
        const auto byte = base::numberIn<std::uint8_t>(text.substr(1, 2), 0, 0xFF, 16);
        if (!byte || text.size() < 3)
            return std::nullopt;
        decoded += static_cast<char>(*byte);
        text.remove_prefix(2);
    }
    return decoded;
}

} // namespace

base::Result<std::map<std::string, std::string, std::less<>>>
tokenUriAttributes(std::string_view uri) {
    constexpr std::string_view scheme = "pkcs11:";
    const base::Error wrong = {
        base::ErrorKind::Usage,
        "\"" + std::string(uri) +
            "\" is no PKCS#11 URI. Give one such as "
            "pkcs11:token=NAME;object=KEY, as \"p11tool --list-all\" prints it."};
    if (!uri.starts_with(scheme))
        return wrong;
    uri.remove_prefix(scheme.size());
    std::map<std::string, std::string, std::less<>> attributes;
    while (!uri.empty()) {
        const std::size_t end = uri.find_first_of(";?&");
        const std::string_view attribute = uri.substr(0, end);
        const std::size_t equals = attribute.find('=');
        const auto value = equals == std::string_view::npos
                               ? std::nullopt
                               : percentDecoded(attribute.substr(equals + 1));
        if (!value)
            return wrong;
        attributes.insert_or_assign(std::string(attribute.substr(0, equals)), *value);
        uri.remove_prefix(end == std::string_view::npos ? uri.size() : end + 1);
    }
    return attributes;
}

} // namespace sign
