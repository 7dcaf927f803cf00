#pragma once

#include <string_view>

/// Whether `bytes` are well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates).
[[nodiscard]] bool isValidUtf8(std::string_view bytes);
