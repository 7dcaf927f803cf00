#pragma once

#include "base/Result.h"
#include "sign/plist/PropertyList.h"

#include <string_view>

namespace sign {

/// How deep the values of a property list may be nested: more than any package needs, and less than
/// the stack has room for.
constexpr unsigned mostPropertyLevels = 64;

/// What the readers of both forms say.
[[nodiscard]] base::Error tooDeepPropertyList(std::string_view name);
[[nodiscard]] base::Error damagedPropertyList(std::string_view name);

/// Drops each entry whose key comes again.
void keepLastOfEachKey(PropertyDictionary& dictionary);

} // namespace sign
