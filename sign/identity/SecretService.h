#pragma once

#include "sign/identity/Secret.h"

#include <optional>

// The desktop's keeper of secrets (freedesktop.org Secret Service API). Systems without one answer
// that there is none.
namespace sign {

/// The passphrase of the user's identities that the service keeps. None if no service runs, if it
/// is locked and stays so, or if it keeps none. Blocks while the user is asked to unlock it.
[[nodiscard]] std::optional<Secret> passphraseOfService();

/// Lets the service keep the passphrase; false if it cannot.
[[nodiscard]] bool keepInService(const Secret& passphrase);

} // namespace sign
