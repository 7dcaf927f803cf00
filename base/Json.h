#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace base {

/// A value of JSON (RFC 8259). Texts are bytes: one that is not UTF-8 is written as the lone
/// surrogate U+DC00 + byte and read back as itself, so that any path survives. Any thread.
class Json {
public:
    using Array = std::vector<Json>;
    using Member = std::pair<std::string, Json>;
    /// In order.
    using Object = std::vector<Member>;

    Json() = default;
    Json(bool value) : value_(value) {}
    Json(double value) : value_(value) {}
    Json(std::int64_t value) : value_(value) {}
    Json(std::string value) : value_(std::move(value)) {}
    Json(const char* value) : value_(std::string(value)) {}
    Json(Array value) : value_(std::move(value)) {}
    Json(Object value) : value_(std::move(value)) {}

    /// The value that is the whole of `text`; none if it is not well-formed, nested deeper than 32,
    /// or names a member twice.
    [[nodiscard]] static std::optional<Json> parse(std::string_view text);
    /// On one line.
    [[nodiscard]] std::string text() const;

    /// The member of an object; null if there is none.
    [[nodiscard]] const Json& operator[](std::string_view name) const;
    // The value if it is of that kind, else nothing: an empty text, zero, no elements.
    [[nodiscard]] const std::string& string() const;
    [[nodiscard]] double number() const;
    [[nodiscard]] std::int64_t integer() const;
    [[nodiscard]] const Array& array() const;
    [[nodiscard]] bool isNull() const { return std::holds_alternative<std::monostate>(value_); }
    [[nodiscard]] bool isObject() const { return std::holds_alternative<Object>(value_); }

    friend bool operator==(const Json&, const Json&) = default;

private:
    void append(std::string& out) const;

    std::variant<std::monostate, bool, std::int64_t, double, std::string, Array, Object> value_;
};

} // namespace base
