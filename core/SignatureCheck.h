#pragma once

#include "core/Caller.h"
#include "core/Identities.h"

#include <functional>
#include <string>

/// Reads the authorities in the signature of the package at `path` and logs whether one of them is
/// among `identities` (asked anew for every authority). A diagnostic step: the answer is always
/// true. Blocks while the inspector runs; any thread.
bool isValidItemToSign(const Caller& caller, const ToolPaths& tools, const std::string& path,
                       bool doNotCodesign, const std::function<IdentityList()>& identities);
