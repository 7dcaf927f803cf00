#pragma once

#include "base/StopSignal.h"
#include "sign/crypto/OpenSsl.h"

#include <chrono>
#include <optional>
#include <string>

namespace sign {

/// The parts of an address that begins with http://.
struct HttpAddress {
    std::string host;
    std::string port;
    std::string path;

    /// Absent if `url` is no such address.
    [[nodiscard]] static std::optional<HttpAddress> in(const std::string& url);
};

/// What is sent and wanted, as media types.
struct HttpTypes {
    const char* query;
    const char* reply;
};

/// Posts a value in DER once, through the proxy that http_proxy and no_proxy name, and gives the
/// value in DER that is answered. Absent if none comes until `end`, if it is stopped meanwhile, or
/// if what answers is something else or larger than `most` bytes. A look-up of the host's name ends
/// by the resolver's own time alone. Any thread, many at once.
[[nodiscard]] std::optional<base::OwnedBytes>
postDer(const HttpAddress& address, const HttpTypes& types, const base::OwnedBytes& der,
        std::size_t most, std::chrono::steady_clock::time_point end, const base::StopSignal& stop);

} // namespace sign
