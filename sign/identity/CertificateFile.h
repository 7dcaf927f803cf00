#pragma once

#include "sign/identity/Certificate.h"

#include <string>
#include <vector>

namespace sign {

/// The certificates in a file in PEM or DER, at least one. Any thread.
[[nodiscard]] base::Result<std::vector<Certificate>> readCertificates(const std::string& path);

} // namespace sign
