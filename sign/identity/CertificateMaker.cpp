#include "sign/identity/CertificateMaker.h"

#include <openssl/x509v3.h>

#include <openssl/pem.h>
#include <openssl/rand.h>

namespace sign {
namespace {

using RequestOwner = OpenSslOwner<X509_REQ, X509_REQ_free>;

constexpr long tenYears = 10L * 365 * 24 * 60 * 60;
constexpr const char* remedy = "Use a shorter name, or try again.";

bool addEntry(X509_NAME* name, int nid, const std::string& value) {
    return X509_NAME_add_entry_by_NID(name, nid, MBSTRING_UTF8,
                                      reinterpret_cast<const unsigned char*>(value.data()),
                                      static_cast<int>(value.size()), -1, 0) == 1;
}

bool addExtension(X509* certificate, int nid, const char* value) {
    using ExtensionOwner = OpenSslOwner<X509_EXTENSION, X509_EXTENSION_free>;
    X509V3_CTX context{};
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const ExtensionOwner extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value));
    return extension && X509_add_ext(certificate, extension.get(), -1) == 1;
}

bool setRandomSerial(X509* certificate) {
    unsigned char bytes[8];
    using NumberOwner = OpenSslOwner<BIGNUM, BN_free>;
    if (RAND_bytes(bytes, sizeof bytes) != 1)
        return false;
    bytes[0] &= 0x7F;
    const NumberOwner number(BN_bin2bn(bytes, sizeof bytes, nullptr));
    return BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr;
}

} // namespace

base::Result<base::OwnedBytes> certificateRequest(EVP_PKEY* key, const std::string& name,
                                                  const std::string& email) {
    const RequestOwner request(X509_REQ_new());
    X509_NAME* subject = X509_REQ_get_subject_name(request.get());
    if (!addEntry(subject, NID_pkcs9_emailAddress, email) ||
        !addEntry(subject, NID_commonName, name) || X509_REQ_set_pubkey(request.get(), key) != 1 ||
        X509_REQ_sign(request.get(), key, EVP_sha256()) <= 0)
        return openSslError("The request could not be made", remedy);
    const BioOwner sink(BIO_new(BIO_s_mem()));
    if (PEM_write_bio_X509_REQ(sink.get(), request.get()) != 1)
        return openSslError("The request could not be written", remedy);
    return bytesOf(sink.get());
}

base::Result<Certificate> selfSignedCertificate(EVP_PKEY* key, const std::string& name) {
    CertificateOwner certificate(X509_new());
    X509* handle = certificate.get();
    const bool isMade = X509_set_version(handle, X509_VERSION_3) == 1 && setRandomSerial(handle) &&
                        X509_gmtime_adj(X509_getm_notBefore(handle), 0) != nullptr &&
                        X509_gmtime_adj(X509_getm_notAfter(handle), tenYears) != nullptr &&
                        addEntry(X509_get_subject_name(handle), NID_commonName, name) &&
                        X509_set_issuer_name(handle, X509_get_subject_name(handle)) == 1 &&
                        X509_set_pubkey(handle, key) == 1 &&
                        addExtension(handle, NID_basic_constraints, "critical,CA:false") &&
                        addExtension(handle, NID_key_usage, "critical,digitalSignature") &&
                        addExtension(handle, NID_ext_key_usage, "critical,codeSigning") &&
                        X509_sign(handle, key, EVP_sha256()) > 0;
    if (!isMade)
        return openSslError("The certificate could not be made", remedy);
    return Certificate(std::move(certificate));
}

} // namespace sign
