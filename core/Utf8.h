#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The characters that `bytes` encode; none if they are not well-formed (as for isValidUtf8).
[[nodiscard]] std::optional<std::u32string> decodedUtf8(std::string_view bytes);

/// Appends the encoding of `character`, a code point up to U+10FFFF; of a surrogate, which has
/// none, that of U+FFFD.
void appendUtf8(std::string& bytes, char32_t character);

/// Whether `bytes` are well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates).
[[nodiscard]] bool isValidUtf8(std::string_view bytes);
