#include "sign/identity/CertificateFile.h"

#include "base/ByteReader.h"
#include "base/FileDescriptor.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>

namespace sign {

base::Result<Blob> readSmallFile(const std::string& path) {
    constexpr off_t mostBytes = off_t{16} << 20U;
    const auto file = base::FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!file.open() || ::fstat(file.get(), &status) != 0)
        return base::systemError("read", path, errno);
    if (!S_ISREG(status.st_mode) || status.st_size > mostBytes)
        return base::Error{base::ErrorKind::Unsupported,
                           "Cannot read " + path +
                               ": it is no plain file of at most 16 MB. Give another file."};
    Blob bytes(static_cast<std::size_t>(status.st_size));
    const auto count = base::readAt(file.get(), bytes.data(), bytes.size(), 0);
    if (!count)
        return base::systemError("read", path, errno);
    bytes.resize(*count);
    return bytes;
}

base::Result<std::vector<Certificate>> readCertificates(const std::string& path) {
    auto bytes = readSmallFile(path);
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
