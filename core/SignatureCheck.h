#pragma once

#include "core/Identities.h"
#include "core/Receiver.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Who signed a package, the leaf certificate first, in what the inspector printed.
[[nodiscard]] std::vector<std::string> authoritiesIn(std::string_view output);

/// The first authority that is one of the identities, which are asked for anew for each.
[[nodiscard]] std::optional<std::string>
knownAuthority(const std::vector<std::string>& authorities,
               const std::function<IdentityList()>& identities);

/// Looks who signed the package at `path` and logs whether it was one of the identities that
/// `identities` gives (asked anew for every authority of the signature). A diagnostic step: the
/// answer is always true. Blocks while the inspector runs; any thread.
bool isValidItemToSign(const Receiver& receiver, const std::string& path, bool doNotCodesign,
                       const std::function<IdentityList()>& identities);
