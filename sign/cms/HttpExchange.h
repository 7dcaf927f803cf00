#pragma once

#include "base/StopSignal.h"
#include "sign/cms/HttpAddress.h"
#include "sign/crypto/OpenSsl.h"

#include <chrono>
#include <optional>

namespace sign {

/// Posts a value in DER of a media type once and gives the value in DER that is answered. Absent if
/// none comes until `end`, if it is stopped meanwhile, or if what answers is something else or
/// larger than `most` bytes. A look-up of the host's name ends by the resolver's own time alone.
/// Any thread, many at once.
[[nodiscard]] std::optional<base::OwnedBytes> postDer(const HttpRoute& route, const char* mediaType,
                                                      const base::OwnedBytes& der, std::size_t most,
                                                      std::chrono::steady_clock::time_point end,
                                                      const base::StopSignal& stop);

} // namespace sign
