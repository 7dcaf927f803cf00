#pragma once

#include "base/Bytes.h"
#include "base/Result.h"
#include "sign/plist/PropertyList.h"

#include <string_view>

namespace sign {

/// Reads Apple's XML form (PropertyList-1.0.dtd), in UTF-8 or as its mark or declaration says.
/// Takes what CoreFoundation takes: a value without <plist>, anything behind the end of the value.
/// A document type that declares entities is refused. `name` is the file that an error names. Any
/// thread.
[[nodiscard]] base::Result<PropertyValue> readXmlPropertyList(base::Bytes bytes,
                                                              std::string_view name);

} // namespace sign
