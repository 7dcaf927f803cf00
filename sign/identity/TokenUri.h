#pragma once

#include "base/Result.h"

#include <map>
#include <string>
#include <string_view>

namespace sign {

/// The attributes of a PKCS#11 URI (RFC 7512), decoded, those behind the question mark too. Usage
/// if it is none.
[[nodiscard]] base::Result<std::map<std::string, std::string, std::less<>>>
tokenUriAttributes(std::string_view uri);

} // namespace sign
