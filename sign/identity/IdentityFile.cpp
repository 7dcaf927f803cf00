#include "sign/identity/IdentityFile.h"

#include "base/ByteReader.h"
#include "sign/files/FileTree.h"
#include "sign/identity/KeyFile.h"

#include <openssl/err.h>
#include <openssl/provider.h>

namespace sign {
namespace {

using Pkcs12Owner = OpenSslOwner<PKCS12, PKCS12_free>;

/// Keychains export with RC2 and triple DES, which OpenSSL keeps in a provider of their own. A
/// system need not have it.
void loadOldAlgorithms() {
    static const bool loaded = OSSL_PROVIDER_load(nullptr, "default") != nullptr &&
                               OSSL_PROVIDER_load(nullptr, "legacy") != nullptr;
    if (!loaded)
        forgetOpenSslErrors();
}

/// Whether an algorithm was missing, and not the right passphrase. Forgets the errors.
bool lacksAlgorithm() {
    bool lacks = false;
    while (const unsigned long code = ERR_get_error())
        lacks = lacks || ERR_GET_REASON(code) == ERR_R_UNSUPPORTED;
    return lacks;
}

base::Result<IdentityFile> readPkcs12(PKCS12* file, const Secret& passphrase,
                                      const std::string& path) {
    loadOldAlgorithms();
    EVP_PKEY* key = nullptr;
    X509* leaf = nullptr;
    STACK_OF(X509)* others = nullptr;
    if (PKCS12_parse(file, passphrase.text().c_str(), &key, &leaf, &others) != 1) {
        if (lacksAlgorithm())
            return base::Error{base::ErrorKind::Unavailable,
                               path + " is encrypted with old algorithms, for which OpenSSL's "
                                      "module \"legacy\" is missing. Install it, or export the "
                                      "identity with AES-256."};
        return base::Error{base::ErrorKind::Denied,
                           "The passphrase does not open " + path + ". Give the right one."};
    }
    IdentityFile found{.certificates = {}, .key = KeyOwner(key)};
    if (leaf != nullptr)
        found.certificates.emplace_back(CertificateOwner(leaf));
    while (others != nullptr && sk_X509_num(others) > 0)
        found.certificates.emplace_back(CertificateOwner(sk_X509_shift(others)));
    sk_X509_free(others);
    return found;
}

} // namespace

base::Result<IdentityFile> readIdentityFile(const std::string& path, const Secret& passphrase) {
    auto bytes = wholeFile(path, Links::Follow);
    if (!bytes)
        return bytes.error();
    const unsigned char* at = bytes->data();
    const Pkcs12Owner pkcs12(d2i_PKCS12(nullptr, &at, static_cast<long>(bytes->size())));
    if (pkcs12)
        return readPkcs12(pkcs12.get(), passphrase, path);
    forgetOpenSslErrors();

    IdentityFile found{.certificates = Certificate::fromPem(*bytes), .key = {}};
    if (found.certificates.empty()) {
        if (auto certificate = Certificate::fromDer(*bytes, path)) {
            found.certificates.push_back(*std::move(certificate));
            return found;
        }
    }
    const bool mentionsKey = base::textOf(*bytes).find("PRIVATE KEY") != std::string_view::npos;
    if (!found.certificates.empty() && !mentionsKey)
        return found;
    auto key = decodedKey(*bytes, passphrase, path);
    if (!key)
        return key.error();
    found.key = *std::move(key);
    return found;
}

} // namespace sign
