#pragma once

#include "base/Bytes.h"
#include "base/Result.h"
#include "sign/crypto/Digest.h"

#include <memory>
#include <openssl/asn1.h>
#include <openssl/pkcs12.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <string>

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/ts.h>

namespace sign {

/// Frees a handle of OpenSSL with the function that its documentation names.
template <auto Free>
struct OpenSslFree {
    template <typename Handle>
    void operator()(Handle* handle) const {
        (void)Free(handle);
    }
};
template <typename Handle, auto Free>
using OpenSslOwner = std::unique_ptr<Handle, OpenSslFree<Free>>;

using Asn1ObjectOwner = OpenSslOwner<ASN1_OBJECT, ASN1_OBJECT_free>;
using Asn1OctetStringOwner = OpenSslOwner<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;
using Asn1TimeOwner = OpenSslOwner<ASN1_TIME, ASN1_TIME_free>;
using BioOwner = OpenSslOwner<BIO, BIO_free_all>;
using CmsOwner = OpenSslOwner<CMS_ContentInfo, CMS_ContentInfo_free>;
using KeyOwner = OpenSslOwner<EVP_PKEY, EVP_PKEY_free>;
using CertificateOwner = OpenSslOwner<X509, X509_free>;
using CertificateStoreOwner = OpenSslOwner<X509_STORE, X509_STORE_free>;

/// A source that reads the bytes, which must outlive it. Null if there is no memory.
[[nodiscard]] BioOwner bioOf(base::Bytes bytes);

/// What has been written to a memory sink.
[[nodiscard]] base::OwnedBytes bytesOf(BIO* sink);

/// Why the last call failed on this thread, in the words of OpenSSL. Forgets it and all before it.
[[nodiscard]] std::string openSslReason();
/// Forgets why calls failed on this thread: an error that stays would be taken for the next one's.
void forgetOpenSslErrors();

/// "WHAT: REASON. REMEDY" with the reason of OpenSSL; `what` says as a whole sentence what failed.
[[nodiscard]] base::Error openSslError(const std::string& what,
                                       const std::string& remedy = "Try again.");

/// The DER that one of OpenSSL's functions i2d_TYPE makes of a value; empty if it fails.
template <typename Encode, typename Value>
[[nodiscard]] base::OwnedBytes derOf(Encode encode, Value* value) {
    unsigned char* bytes = nullptr;
    const int size = encode(value, &bytes);
    if (size < 0)
        return {};
    base::OwnedBytes der(bytes, bytes + size);
    OPENSSL_free(bytes);
    return der;
}

} // namespace sign
