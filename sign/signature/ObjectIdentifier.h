#pragma once

#include "base/Bytes.h"

#include <optional>
#include <string>
#include <string_view>

namespace sign {

/// The content of the DER of an object identifier in dots, such as "1.2.840.113635.100.6.2.6";
/// empty if the text is none.
[[nodiscard]] std::string encodedOid(std::string_view dotted);

/// The dots of such a content; none if the bytes are no object identifier.
[[nodiscard]] std::optional<std::string> decodedOid(base::Bytes content);

} // namespace sign
