#pragma once

#include "sign/identity/Certificate.h"

#include <string>
#include <vector>

namespace sign {

/// The bytes of a small file: a key, a certificate, a list. Refuses what is no plain file, or
/// larger than 16 MB. Any thread.
[[nodiscard]] base::Result<Blob> readSmallFile(const std::string& path);

/// The certificates in a file in PEM or DER, at least one. Any thread.
[[nodiscard]] base::Result<std::vector<Certificate>> readCertificates(const std::string& path);

} // namespace sign
