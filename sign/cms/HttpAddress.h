#pragma once

#include "base/Result.h"

#include <optional>
#include <string>
#include <string_view>

namespace sign {

/// The parts of an address that begins with http://.
struct HttpAddress {
    std::string host; ///< in brackets if it is an address of IPv6
    std::string port;
    std::string path;
    std::string user{}; ///< "NAME:PASSWORD"; empty if there is none

    /// Absent if `url` is no such address. Any thread.
    [[nodiscard]] static std::optional<HttpAddress> in(std::string_view url);

    /// The host, with its port unless that is the usual one.
    [[nodiscard]] std::string authority() const;
    /// The whole address without the user, whose password is nobody's business.
    [[nodiscard]] std::string shown() const;
};

/// Where requests to a server are sent to.
struct HttpRoute {
    HttpAddress server;
    std::optional<HttpAddress> proxy{};

    /// Through the proxy that http_proxy or else all_proxy names, unless no_proxy exempts the host:
    /// a list of hosts, of domains with all below them, or "*". Unavailable if that is none that
    /// can be used. Any thread.
    [[nodiscard]] static base::Result<HttpRoute> to(HttpAddress server);
};

} // namespace sign
