#pragma once

#include "sign/identity/Certificate.h"

#include <string>

namespace sign {

/// Where the user's identities are: KELPMORAY_IDENTITIES, else kelpmoray/identities in the user's
/// data folder (XDG base directories). Empty if the user has no home. Any thread.
[[nodiscard]] std::string identityFolderPath();

/// Whether it is one of Apple's root certificates, which are known by their SHA-256. Those in the
/// folder `roots` of the identity folder count as well: chains of a test authority are then told
/// and treated like Apple's. Read once in a process. Any thread.
[[nodiscard]] bool countsAsAppleRoot(const Certificate& certificate);

} // namespace sign
