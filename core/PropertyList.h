#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

/// The string values of a property list's outermost dictionary, by key; values of other types are
/// left out. Reads the XML form (PropertyList-1.0.dtd) and the binary form ("bplist00"). None if
/// the bytes are neither. Any thread.
[[nodiscard]] std::optional<std::map<std::string, std::string>>
propertyListStrings(std::string_view bytes);
