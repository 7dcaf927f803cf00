#pragma once

#include "base/Result.h"
#include "sign/StaticCode.h"

#include <string>

namespace sign {

/// "app bundle with Mach-O universal (x86_64 arm64)" and so on. Any thread.
[[nodiscard]] std::string formatOf(const StaticCode& code);

/// What is known of signed code, one KEY=VALUE a line in the order of Apple's tool. `level` 0 tells
/// only where it is, each one up to 4 tells more. NotFound, with the platform's message, if the
/// code is not signed. Any thread.
[[nodiscard]] base::Result<std::string> describe(const StaticCode& code, unsigned level);

/// "designated => …" and the other requirements of its signature, one a line; one that it only
/// implies is behind a number sign. Any thread.
[[nodiscard]] base::Result<std::string> requirementsOf(const StaticCode& code);

/// The XML of its entitlements as they were given; empty if it has none. Any thread.
[[nodiscard]] base::Result<base::OwnedBytes> entitlementsOf(const StaticCode& code);

} // namespace sign
