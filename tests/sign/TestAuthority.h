#pragma once

#include "sign/crypto/OpenSsl.h"
#include "sign/identity/Certificate.h"
#include "sign/identity/Identity.h"

#include <ctime>
#include <memory>
#include <openssl/x509v3.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <openssl/rsa.h>

/// An extension as openssl.cnf has it.
struct Extension {
    const char* oid;
    const char* value;
};

/// A certificate and its key, made anew.
struct Issued {
    sign::Certificate certificate;
    std::shared_ptr<EVP_PKEY> key;
};

inline constexpr long day = 24L * 60 * 60;

/// The validity of a certificate, in seconds from now.
struct Validity {
    long from = -100 * day;
    long until = 365 * day;
};

/// A key of a kind that OpenSSL knows by that name.
inline std::shared_ptr<EVP_PKEY> keyOfKind(const char* kind) {
    const sign::OpenSslOwner<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(
        EVP_PKEY_CTX_new_from_name(nullptr, kind, nullptr));
    EVP_PKEY* key = nullptr;
    EVP_PKEY_keygen_init(context.get());
    EXPECT_EQ(EVP_PKEY_keygen(context.get(), &key), 1) << kind;
    return {key, EVP_PKEY_free};
}

/// For ECDSA; made at once, where RSA takes a while.
inline std::shared_ptr<EVP_PKEY> curveKey() {
    return {EVP_EC_gen("P-256"), EVP_PKEY_free};
}

/// Made by `issuer`, or by itself without one. Each has the common name of its own alone.
inline Issued issue(const std::string& name, const Issued* issuer,
                    const std::vector<Extension>& extensions, Validity validity = {},
                    const std::shared_ptr<EVP_PKEY>& key = keyOfKind("RSA")) {
    static long serial = 0;
    sign::CertificateOwner certificate(X509_new());
    X509* made = certificate.get();
    X509_set_version(made, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(made), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(made), validity.from);
    X509_gmtime_adj(X509_getm_notAfter(made), validity.until);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(made), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    X509* from = issuer != nullptr ? issuer->certificate.handle() : made;
    X509_set_issuer_name(made, X509_get_subject_name(from));
    X509_set_pubkey(made, key.get());
    for (const Extension& wanted : extensions) {
        X509_EXTENSION* extension = X509V3_EXT_conf(nullptr, nullptr, wanted.oid, wanted.value);
        EXPECT_NE(extension, nullptr) << wanted.oid;
        X509_add_ext(made, extension, -1);
        X509_EXTENSION_free(extension);
    }
    EXPECT_GT(X509_sign(made, issuer != nullptr ? issuer->key.get() : key.get(), EVP_sha256()), 0);
    return {sign::Certificate(std::move(certificate)), key};
}

inline const std::vector<Extension> forIssuers = {{"basicConstraints", "critical,CA:true"},
                                                  {"keyUsage", "critical,keyCertSign"}};
inline const std::vector<Extension> forCode = {{"keyUsage", "critical,digitalSignature"},
                                               {"extendedKeyUsage", "critical,codeSigning"}};
inline const std::vector<Extension> forTime = {{"keyUsage", "critical,digitalSignature"},
                                               {"extendedKeyUsage", "critical,timeStamping"}};

/// Two authorities and what they issued; made once, for keys take time.
struct Authorities {
    Issued root = issue("Test Root CA", nullptr, forIssuers);
    Issued middle = issue("Test Code Authority", &root, forIssuers);
    Issued leaf = issue("Developer ID Application: Jo (ABCDE12345)", &middle, forCode);
    Issued clock = issue("Test Clock", &root, forTime);
    Issued otherRoot = issue("Other Root CA", nullptr, forIssuers);
    Issued otherClock = issue("Other Clock", &otherRoot, forTime);

    static const Authorities& shared() {
        static const Authorities made;
        return made;
    }
};

inline sign::Identity identityOf(const Issued& leaf, std::vector<sign::Certificate> issuers) {
    EVP_PKEY_up_ref(leaf.key.get());
    issuers.insert(issuers.begin(), leaf.certificate);
    return {"", leaf.certificate.label(), std::move(issuers),
            std::make_shared<sign::SigningKey>(sign::KeyOwner(leaf.key.get()), false)};
}

/// What a token says.
struct TokenFacts {
    base::OwnedBytes imprint; ///< SHA-256
    std::int64_t time = std::time(nullptr);
    const ASN1_INTEGER* nonce = nullptr;
};

/// A time stamp token (RFC 3161), right or not.
inline base::OwnedBytes tokenOf(const TokenFacts& facts, const Issued& clock,
                                const std::vector<sign::Certificate>& issuers) {
    const sign::OpenSslOwner<TS_TST_INFO, TS_TST_INFO_free> content(TS_TST_INFO_new());
    TS_TST_INFO_set_version(content.get(), 1);
    const sign::Asn1ObjectOwner policy(OBJ_txt2obj("1.2.3.4.5.6", 1));
    TS_TST_INFO_set_policy_id(content.get(), policy.get());
    const sign::OpenSslOwner<TS_MSG_IMPRINT, TS_MSG_IMPRINT_free> imprint(TS_MSG_IMPRINT_new());
    const sign::OpenSslOwner<X509_ALGOR, X509_ALGOR_free> algorithm(X509_ALGOR_new());
    X509_ALGOR_set0(algorithm.get(), OBJ_nid2obj(NID_sha256), V_ASN1_NULL, nullptr);
    TS_MSG_IMPRINT_set_algo(imprint.get(), algorithm.get());
    base::OwnedBytes hash = facts.imprint;
    TS_MSG_IMPRINT_set_msg(imprint.get(), hash.data(), static_cast<int>(hash.size()));
    TS_TST_INFO_set_msg_imprint(content.get(), imprint.get());
    const sign::OpenSslOwner<ASN1_INTEGER, ASN1_INTEGER_free> number(ASN1_INTEGER_new());
    ASN1_INTEGER_set(number.get(), 1);
    TS_TST_INFO_set_serial(content.get(), number.get());
    const sign::OpenSslOwner<ASN1_GENERALIZEDTIME, ASN1_GENERALIZEDTIME_free> time(
        ASN1_GENERALIZEDTIME_set(nullptr, static_cast<time_t>(facts.time)));
    TS_TST_INFO_set_time(content.get(), time.get());
    if (facts.nonce != nullptr)
        TS_TST_INFO_set_nonce(content.get(), facts.nonce);

    const base::OwnedBytes der = sign::derOf(i2d_TS_TST_INFO, content.get());
    constexpr unsigned flags = CMS_PARTIAL | CMS_BINARY | CMS_NOSMIMECAP | CMS_CADES;
    const sign::CmsOwner cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
    const sign::Asn1ObjectOwner type(OBJ_nid2obj(NID_id_smime_ct_TSTInfo));
    CMS_set1_eContentType(cms.get(), type.get());
    CMS_add1_signer(cms.get(), clock.certificate.handle(), clock.key.get(), EVP_sha256(), flags);
    for (const sign::Certificate& issuer : issuers)
        CMS_add1_cert(cms.get(), issuer.handle());
    EXPECT_EQ(CMS_final(cms.get(), sign::bioOf(der).get(), nullptr, flags), 1)
        << sign::openSslReason();
    return sign::derOf(i2d_CMS_ContentInfo, cms.get());
}

inline base::OwnedBytes sha256Of(base::Bytes bytes) {
    const sign::Digest digest = sign::digestOf(sign::HashType::Sha256, bytes);
    return {digest.bytes().begin(), digest.bytes().end()};
}
