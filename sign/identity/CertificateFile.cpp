#include "sign/identity/CertificateFile.h"

#include "sign/files/FileTree.h"

namespace sign {

base::Result<std::vector<Certificate>> readCertificates(const std::string& path) {
    auto bytes = wholeFile(path, Links::Follow);
    if (!bytes)
        return bytes.error();
    std::vector<Certificate> certificates = Certificate::fromPem(*bytes);
    if (!certificates.empty())
        return certificates;
    auto certificate = Certificate::fromDer(*bytes, path);
    if (!certificate)
        return certificate.error();
    return std::vector<Certificate>{*std::move(certificate)};
}

} // namespace sign
