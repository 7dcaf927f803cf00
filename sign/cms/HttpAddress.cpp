#include "sign/cms/HttpAddress.h"

#include "base/Number.h"
#include "sign/files/FileTree.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <utility>

namespace sign {
namespace {

constexpr const char* usualPort = "80";

std::string withoutPercents(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        const auto byte = text[0] == '%' && text.size() > 2
                              ? base::numberIn<std::uint8_t>(text.substr(1, 2), 0, 0xFF, 16)
                              : std::nullopt;
        plain += byte ? static_cast<char>(*byte) : text[0];
        text.remove_prefix(byte ? 3 : 1);
    }
    return plain;
}

struct Variable {
    const char* name;
    std::string value;
};

/// The first one that is set and not empty.
std::optional<Variable> firstOf(std::initializer_list<const char*> names) {
    for (const char* name : names)
        if (const char* value = std::getenv(name); value != nullptr && *value != '\0')
            return Variable{name, value};
    return std::nullopt;
}

std::string_view withoutBrackets(std::string_view host) {
    return host.starts_with('[') && host.ends_with(']') ? host.substr(1, host.size() - 2) : host;
}

/// Whether the host is the domain or lies in it.
bool isIn(std::string_view host, std::string_view domain) {
    if (domain.empty() || host.size() < domain.size())
        return false;
    const std::size_t size = host.size() - domain.size();
    return sameWithoutCase(host.substr(size), domain) && (size == 0 || host[size - 1] == '.');
}

bool isExempt(std::string_view host, std::string_view list) {
    while (!list.empty()) {
        const std::size_t size = std::min(list.find_first_of(", \t"), list.size());
        std::string_view entry = list.substr(0, size);
        list.remove_prefix(std::min(list.size(), size + 1));
        if (entry == "*")
            return true;
        entry.remove_prefix(std::min(entry.find_first_not_of("*."), entry.size()));
        if (isIn(withoutBrackets(host), withoutBrackets(entry)))
            return true;
    }
    return false;
}

} // namespace

std::optional<HttpAddress> HttpAddress::in(std::string_view url) {
    constexpr std::string_view scheme = "http://";
    const auto isBlank = [](char c) { return (c >= '\0' && c <= ' ') || c == '\x7F'; };
    if (!sameWithoutCase(url.substr(0, scheme.size()), scheme) || std::ranges::any_of(url, isBlank))
        return std::nullopt;
    url.remove_prefix(scheme.size());
    url = url.substr(0, url.find('#'));
    std::string_view place = url.substr(0, url.find_first_of("/?"));
    std::string path(url.substr(place.size()));
    if (!path.starts_with('/'))
        path.insert(0, 1, '/');
    std::string user;
    if (const std::size_t at = place.rfind('@'); at != std::string_view::npos) {
        user = withoutPercents(place.substr(0, at));
        place.remove_prefix(at + 1);
    }
    const std::size_t inBrackets = place.starts_with('[') ? place.find(']') : 0;
    if (inBrackets == std::string_view::npos)
        return std::nullopt;
    const std::size_t colon = place.find(':', inBrackets);
    const std::string_view host = place.substr(0, colon);
    std::string_view port = usualPort;
    if (colon != std::string_view::npos && colon + 1 < place.size())
        port = place.substr(colon + 1);
    constexpr std::uint16_t most = std::numeric_limits<std::uint16_t>::max();
    if (host.empty() || !base::numberIn<std::uint16_t>(port, 1, most))
        return std::nullopt;
    return HttpAddress{std::string(host), std::string(port), std::move(path), std::move(user)};
}

std::string HttpAddress::authority() const {
    return port == usualPort ? host : host + ':' + port;
}

std::string HttpAddress::shown() const {
    return "http://" + authority() + path;
}

base::Result<HttpRoute> HttpRoute::to(HttpAddress server) {
    const auto named = firstOf({"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"});
    const auto exempt = firstOf({"no_proxy", "NO_PROXY"});
    if (!named || (exempt && isExempt(server.host, exempt->value)))
        return HttpRoute{std::move(server)};
    const bool hasScheme = named->value.find("://") != std::string::npos;
    auto proxy = HttpAddress::in(hasScheme ? named->value : "http://" + named->value);
    if (!proxy)
        return base::Error{base::ErrorKind::Unavailable,
                           std::string("The proxy that ") + named->name +
                               " names cannot be used: it is no address such as "
                               "http://HOST:PORT. Name one that is, or \"" +
                               server.host + "\" in no_proxy."};
    return HttpRoute{std::move(server), std::move(proxy)};
}

} // namespace sign
