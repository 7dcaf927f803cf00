#pragma once

#include "base/Result.h"
#include "sign/crypto/Digest.h"
#include "sign/plist/PropertyList.h"

#include <cstdint>
#include <string_view>

namespace sign {

/// Entitlements in the two forms that a signature holds.
struct Entitlements {
    base::OwnedBytes xml{}; ///< the property list as it was given (magic fade7171 in front)
    base::OwnedBytes der{}; ///< the same as DER (magic fade7172 in front)
    PropertyValue value{};  ///< a dictionary
};

/// Entitlements from an XML property list, which is kept as it is. `name` is the file that an error
/// names; a binary list, and values that have no DER (real numbers, dates, integers above 2^63-1),
/// are refused. Any thread.
[[nodiscard]] base::Result<Entitlements> entitlementsFromXml(base::Bytes xml,
                                                             std::string_view name);

/// The property list in the blob of slot 5 (magic fade7171). `name` is the file that an error
/// names.
[[nodiscard]] base::Result<Entitlements> entitlementsFromBlob(base::Bytes blob,
                                                              std::string_view name);

/// The flags of the executable segment that the kernel takes from the entitlements (CS_EXECSEG_* in
/// Apple's cs_blobs.h). Any thread.
[[nodiscard]] std::uint64_t executableSegmentFlags(const PropertyValue& entitlements);

} // namespace sign
