#pragma once

#include "base/Bytes.h"
#include "base/Result.h"
#include "sign/plist/PropertyList.h"

#include <string_view>

namespace sign {

/// Whether the bytes start as a binary property list does.
[[nodiscard]] bool isBinaryPropertyList(base::Bytes bytes);

/// Reads Apple's binary form (bplist00, as CoreFoundation's CFBinaryPList.c defines it). Its
/// objects may be shared: what would multiply to more than 1,000,000 values or 64 MB is refused. No
/// sets, no UIDs. `name` is the file that an error names. Any thread.
[[nodiscard]] base::Result<PropertyValue> readBinaryPropertyList(base::Bytes bytes,
                                                                 std::string_view name);

} // namespace sign
