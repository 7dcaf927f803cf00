#pragma once

#include "core/Description.h"

#include <array>
#include <span>
#include <string>
#include <string_view>

/// One argument of a format: refers to a describable value, which must outlive the call.
class FormatArgument {
public:
    template <typename T>
    explicit FormatArgument(const T& value)
        : value_(&value), describe_([](BoundedText& out, const void* erased) {
              describe(out, *static_cast<const T*>(erased));
          }) {}

    void describeTo(BoundedText& out) const { describe_(out, value_); }

private:
    const void* value_;
    void (*describe_)(BoundedText&, const void*);
};

/// Appends `format` to `out` with its directives `%@`, `%i`, `%lu` and `%s` replaced by the
/// descriptions of the arguments, in order; `%%` is a per cent sign. A directive without an
/// argument prints as "(null)"; any other text stands for itself. Stops early once `out` is closed.
void appendFormat(BoundedText& out, std::string_view format,
                  std::span<const FormatArgument> arguments);

/// The whole text of `format` with its directives replaced (see appendFormat).
template <typename... Args>
[[nodiscard]] std::string formatted(std::string_view format, const Args&... args) {
    BoundedText out;
    appendFormat(out, format, std::array<FormatArgument, sizeof...(Args)>{FormatArgument(args)...});
    return out.take();
}
