#pragma once

#include "core/Caller.h"
#include "core/Identities.h"

#include <functional>
#include <string>

/// Looks who signed the package at `path` and logs whether it was one of the identities that
/// `identities` gives (asked anew for every authority of the signature). A diagnostic step: the
/// answer is always true. Blocks while the inspector runs; any thread.
bool isValidItemToSign(const Caller& caller, const std::string& path, bool doNotCodesign,
                       const std::function<IdentityList()>& identities);
