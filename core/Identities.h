#pragma once

#include "core/Caller.h"
#include "core/ToolPaths.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// One signing identity, as the keychain names it "Kind: Holder".
struct IdentityRecord {
    std::string title;          ///< the certificate kind
    std::string identitystring; ///< the holder: what the signing script is given
    std::string displaystring;  ///< "title: identitystring", as signatures name their authorities
};
using IdentityList = std::vector<IdentityRecord>;

void describe(BoundedText& out, const IdentityRecord& record);

/// What the record "Do NOT Codesign" has for its identity string.
inline constexpr std::string_view doNotCodesignIdentity = "donotcodesign";

/// The shell command line that prints one line "Kind$$ Holder" for each valid identity.
[[nodiscard]] std::string identityListingCommand(const ToolPaths& tools);

/// The identities in what that command printed, "Do NOT Codesign" in front. Lines that are not of
/// its form and identities for iPhones are left out.
[[nodiscard]] IdentityList identitiesFromListing(std::string_view output);

/// Asks the identity tool; blocks while it runs. None if it printed nothing. Any thread.
[[nodiscard]] std::optional<IdentityList> codesigningIdentities(const Caller& caller,
                                                                const ToolPaths& tools);

/// The position in `list` of the first record with that identity string, in any letter case. 0 for
/// none or an empty list; one past the end if no record has it.
[[nodiscard]] std::size_t selectionIndex(const IdentityList& list,
                                         const std::optional<std::string>& identitystring);
