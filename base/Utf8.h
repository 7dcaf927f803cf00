#pragma once

#include "base/Bytes.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace base {

/// Whether a byte of UTF-8 goes on with a character that began before it.
[[nodiscard]] inline bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// How many bytes the first character of `bytes` takes; 0 if it is not well-formed or `bytes` is
/// empty.
[[nodiscard]] std::size_t utf8Length(std::string_view bytes);

/// The characters that `bytes` encode; none if they are not well-formed (as for isValidUtf8).
[[nodiscard]] std::optional<std::u32string> decodedUtf8(std::string_view bytes);

/// Appends the encoding of `character`, a code point up to U+10FFFF. A surrogate, which has none,
/// becomes U+FFFD.
void appendUtf8(std::string& bytes, char32_t character);

/// The encoding of UTF-16 whose units have their higher byte first. A surrogate without its other
/// half becomes U+FFFD, and half a unit at the end is left out.
[[nodiscard]] std::string utf8OfUtf16(Bytes bytes);

/// Whether `bytes` are well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates).
[[nodiscard]] bool isValidUtf8(std::string_view bytes);

} // namespace base
