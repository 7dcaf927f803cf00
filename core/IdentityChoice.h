#pragma once

#include "base/Result.h"
#include "core/ToolPaths.h"

#include <string>
#include <string_view>
#include <vector>

/// A valid signing identity as the identity tool lists it.
struct ListedIdentity {
    std::string hash; ///< SHA-1 of the certificate, 40 hexadecimal digits
    std::string name; ///< "Kind: Holder"
};

/// Asks the identity tool; blocks while it runs. Identities for iPhones are left out, as in the
/// window. Unavailable if there is no such tool, or with its words if it fails. Any thread.
[[nodiscard]] base::Result<std::vector<ListedIdentity>> listedIdentities(const ToolPaths& tools);

/// Whether the key can be used without asking anybody, as far as the tool can tell: Unavailable
/// with the remedy if it is locked or away. Any thread.
[[nodiscard]] base::Outcome checkKey(const ToolPaths& tools, const ListedIdentity& identity);

/// The identities in what the tool printed; lines of another form are left out.
[[nodiscard]] std::vector<ListedIdentity> identitiesWithHashes(std::string_view output);

/// "Jane Doe (TEAMID)" of "Developer ID Application: Jane Doe (TEAMID)"; the whole name if it has
/// no kind.
[[nodiscard]] std::string_view holderOf(std::string_view name);

/// The hash and the name: one line of a list that people choose from.
[[nodiscard]] std::string lineOf(const ListedIdentity& identity);

/// The one that `wanted` stands for: its hash, its line in a list, its name, its holder, or any
/// part of its name that no other has. NotFound and Conflict list the identities there are, one a
/// line.
[[nodiscard]] base::Result<ListedIdentity>
chosenIdentity(const std::vector<ListedIdentity>& identities, std::string_view wanted);
