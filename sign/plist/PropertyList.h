#pragma once

#include "base/Bytes.h"
#include "base/Result.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace sign {

class PropertyValue;
using PropertyArray = std::vector<PropertyValue>;
/// In the order in which the file has them. Of a key that comes twice there, only the last one.
using PropertyDictionary = std::vector<std::pair<std::string, PropertyValue>>;
using PropertyData = base::OwnedBytes;

/// Seconds since 2001-01-01 00:00 UTC, as Apple counts.
struct PropertyDate {
    double seconds = 0;
    bool operator==(const PropertyDate&) const = default;
};

/// One value of a property list: exactly one of the kinds, of which std::uint64_t is only for
/// integers above 2^63-1. Texts are UTF-8.
class PropertyValue {
public:
    using Kinds = std::variant<PropertyDictionary, PropertyArray, std::string, std::int64_t,
                               std::uint64_t, double, bool, PropertyData, PropertyDate>;

    PropertyValue() = default; ///< an empty dictionary
    /// Of exactly the type of a kind, so that a literal does not end as a boolean.
    template <typename Kind>
    requires std::same_as<Kind, PropertyDictionary> || std::same_as<Kind, PropertyArray> ||
        std::same_as<Kind, std::string> || std::same_as<Kind, std::int64_t> ||
        std::same_as<Kind, std::uint64_t> || std::same_as<Kind, double> ||
        std::same_as<Kind, bool> || std::same_as<Kind, PropertyData> ||
        std::same_as<Kind, PropertyDate>
        PropertyValue(Kind value) : kinds_(std::move(value)) {}

    [[nodiscard]] const Kinds& kinds() const { return kinds_; }

    /// Each is null if the value is of another kind.
    [[nodiscard]] const PropertyDictionary* dictionary() const { return as<PropertyDictionary>(); }
    [[nodiscard]] const PropertyArray* array() const { return as<PropertyArray>(); }
    [[nodiscard]] const std::string* string() const { return as<std::string>(); }
    /// Null for those above 2^63-1, too.
    [[nodiscard]] const std::int64_t* integer() const { return as<std::int64_t>(); }
    [[nodiscard]] const double* real() const { return as<double>(); }
    [[nodiscard]] const bool* boolean() const { return as<bool>(); }
    [[nodiscard]] const PropertyData* data() const { return as<PropertyData>(); }

    /// The value of `key`; null if this is no dictionary or has no such key. Looks at every key, so
    /// callers that look up many make an index of their own.
    [[nodiscard]] const PropertyValue* find(std::string_view key) const;
    /// Same, only if it is a text.
    [[nodiscard]] const std::string* findString(std::string_view key) const;

    bool operator==(const PropertyValue&) const = default;

private:
    template <typename Kind>
    [[nodiscard]] const Kind* as() const {
        return std::get_if<Kind>(&kinds_);
    }

    Kinds kinds_;
};

/// How large a property list may be, far more than any package needs.
inline constexpr std::size_t mostPropertyListBytes = std::size_t{64} << 20U;

/// Reads an XML or a binary property list (Apple's plist(5)); no other form. `name` is the file
/// that an error names. Input that is nested or grows beyond what a package has, is refused before
/// memory is spent. Any thread.
[[nodiscard]] base::Result<PropertyValue> readPropertyList(base::Bytes bytes,
                                                           std::string_view name);

/// The XML that Apple's own tools write, to the byte: tabs, keys sorted by UTF-16 unit, a final
/// newline. Texts must be UTF-8. Any thread.
[[nodiscard]] std::string applePropertyListXml(const PropertyValue& value);

/// Whether `left` comes before `right` by UTF-16 units; both are UTF-8.
[[nodiscard]] bool comesBeforeInUtf16(std::string_view left, std::string_view right);

} // namespace sign
