#include "sign/identity/Certificate.h"

#include "base/ByteReader.h"
#include "sign/identity/TrustedRoots.h"

#include <array>
#include <ctime>
#include <mutex>
#include <openssl/x509v3.h>
#include <unordered_set>

#include <openssl/pem.h>

namespace sign {
namespace {

struct FieldName {
    int nid;
    const char* name;
};
constexpr std::array<FieldName, 9> fieldNames = {{{NID_countryName, "C"},
                                                  {NID_commonName, "CN"},
                                                  {NID_description, "D"},
                                                  {NID_localityName, "L"},
                                                  {NID_organizationName, "O"},
                                                  {NID_organizationalUnitName, "OU"},
                                                  {NID_stateOrProvinceName, "ST"},
                                                  {NID_streetAddress, "STREET"},
                                                  {NID_userId, "UID"}}};

std::string utf8Of(const ASN1_STRING* string) {
    unsigned char* text = nullptr;
    const int size = ASN1_STRING_to_UTF8(&text, string);
    if (size < 0)
        return {};
    std::string result(reinterpret_cast<char*>(text), static_cast<std::size_t>(size));
    OPENSSL_free(text);
    return result;
}

/// The last entry of a name that has the field; empty without one.
std::string lastEntry(const X509_NAME* name, int nid) {
    std::string value;
    for (int at = -1; (at = X509_NAME_get_index_by_NID(name, nid, at)) >= 0;)
        value = utf8Of(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, at)));
    return value;
}

std::string labelOf(const X509_NAME* name) {
    for (const int nid : {NID_commonName, NID_organizationName, NID_organizationalUnitName}) {
        if (std::string value = lastEntry(name, nid); !value.empty())
            return value;
    }
    return "<unknown>";
}

std::int64_t secondsOf(const ASN1_TIME* time) {
    std::tm parts{};
    return ASN1_TIME_to_tm(time, &parts) == 1 ? static_cast<std::int64_t>(timegm(&parts)) : 0;
}

std::string dotted(const ASN1_OBJECT* object) {
    std::array<char, 128> text{};
    const int size = OBJ_obj2txt(text.data(), static_cast<int>(text.size()), object, 1);
    return size > 0 && static_cast<std::size_t>(size) < text.size() ? std::string(text.data()) : "";
}

/// Pairs of which one has signed the other: each code object of a package brings the same ones.
class IssuedCertificates {
public:
    bool contains(const std::string& pair) {
        const std::lock_guard lock(mutex_);
        return pairs_.contains(pair);
    }
    void add(const std::string& pair) {
        constexpr std::size_t most = 256;
        const std::lock_guard lock(mutex_);
        if (pairs_.size() >= most)
            pairs_.clear();
        pairs_.insert(pair);
    }

private:
    std::mutex mutex_;
    std::unordered_set<std::string> pairs_;
};

std::string textOf(const base::OwnedBytes& bytes) {
    return std::string(base::textOf(bytes));
}

} // namespace

base::Result<Certificate> Certificate::fromDer(base::Bytes der, std::string_view name) {
    const unsigned char* at = der.data();
    CertificateOwner handle(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
    if (!handle || at != der.data() + der.size()) {
        forgetOpenSslErrors();
        return base::Error{base::ErrorKind::Damaged,
                           std::string(name) +
                               " is no certificate. Give a certificate in DER or PEM."};
    }
    return Certificate(std::move(handle));
}

std::vector<Certificate> Certificate::fromPem(base::Bytes pem) {
    std::vector<Certificate> certificates;
    const BioOwner source = bioOf(pem);
    while (X509* handle = PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr))
        certificates.emplace_back(CertificateOwner(handle));
    forgetOpenSslErrors(); // the end of the text is an error to the reader
    return certificates;
}

base::OwnedBytes Certificate::der() const {
    return derOf(i2d_X509, handle());
}

std::string Certificate::subjectField(std::string_view name) const {
    for (const FieldName& field : fieldNames)
        if (name == field.name)
            return lastEntry(X509_get_subject_name(handle()), field.nid);
    return {};
}

std::string Certificate::label() const {
    return labelOf(X509_get_subject_name(handle()));
}

std::string Certificate::issuerLabel() const {
    return labelOf(X509_get_issuer_name(handle()));
}

std::int64_t Certificate::notBefore() const {
    return secondsOf(X509_get0_notBefore(handle()));
}

std::int64_t Certificate::notAfter() const {
    return secondsOf(X509_get0_notAfter(handle()));
}

bool Certificate::signsCode(bool withoutUsages) const {
    const std::uint32_t usages = X509_get_extended_key_usage(handle());
    if (usages == UINT32_MAX)
        return withoutUsages;
    return (usages & XKU_CODE_SIGN) != 0;
}

bool Certificate::signsData() const {
    return (X509_get_key_usage(handle()) & KU_DIGITAL_SIGNATURE) != 0;
}

bool Certificate::hasKeyForCode() const {
    const EVP_PKEY* key = X509_get0_pubkey(handle());
    const int kind = key != nullptr ? EVP_PKEY_get_base_id(key) : EVP_PKEY_NONE;
    forgetOpenSslErrors();
    return kind == EVP_PKEY_RSA || kind == EVP_PKEY_EC;
}

bool Certificate::isSelfIssued() const {
    return X509_NAME_cmp(X509_get_subject_name(handle()), X509_get_issuer_name(handle())) == 0;
}

bool Certificate::isIssuedBy(const Certificate& issuer) const {
    static IssuedCertificates known;
    const std::string pair = textOf(der()) + textOf(issuer.der());
    if (known.contains(pair))
        return true;
    // One that has signed itself need not be allowed to sign others.
    const bool mayBeIssuer =
        *this == issuer || (X509_check_issued(issuer.handle(), handle()) == X509_V_OK &&
                            X509_check_ca(issuer.handle()) > 0);
    const bool isIssuer =
        mayBeIssuer && X509_verify(handle(), X509_get0_pubkey(issuer.handle())) == 1;
    if (isIssuer)
        known.add(pair);
    else
        forgetOpenSslErrors();
    return isIssuer;
}

std::string Certificate::issuerAddress() const {
    using AccessOwner = OpenSslOwner<AUTHORITY_INFO_ACCESS, AUTHORITY_INFO_ACCESS_free>;
    const AccessOwner access(static_cast<AUTHORITY_INFO_ACCESS*>(
        X509_get_ext_d2i(handle(), NID_info_access, nullptr, nullptr)));
    for (int at = 0; access && at < sk_ACCESS_DESCRIPTION_num(access.get()); ++at) {
        const ACCESS_DESCRIPTION* way = sk_ACCESS_DESCRIPTION_value(access.get(), at);
        if (OBJ_obj2nid(way->method) == NID_ad_ca_issuers && way->location->type == GEN_URI)
            return utf8Of(way->location->d.uniformResourceIdentifier);
    }
    return {};
}

CertificateFacts Certificate::facts() const {
    CertificateFacts facts{.sha1 = sha1(), .isAppleRoot = countsAsAppleRoot(*this)};
    for (const FieldName& field : fieldNames) {
        if (std::string value = subjectField(field.name); !value.empty())
            facts.subject.emplace(field.name, std::move(value));
    }
    facts.email = lastEntry(X509_get_subject_name(handle()), NID_pkcs9_emailAddress);
    for (int at = 0; at < X509_get_ext_count(handle()); ++at)
        facts.extensions.insert(dotted(X509_EXTENSION_get_object(X509_get_ext(handle(), at))));
    using PoliciesOwner = OpenSslOwner<CERTIFICATEPOLICIES, CERTIFICATEPOLICIES_free>;
    const PoliciesOwner policies(static_cast<CERTIFICATEPOLICIES*>(
        X509_get_ext_d2i(handle(), NID_certificate_policies, nullptr, nullptr)));
    for (int at = 0; policies && at < sk_POLICYINFO_num(policies.get()); ++at)
        facts.policies.insert(dotted(sk_POLICYINFO_value(policies.get(), at)->policyid));
    return facts;
}

std::vector<CertificateFacts> factsOf(const std::vector<Certificate>& chain) {
    std::vector<CertificateFacts> facts;
    facts.reserve(chain.size());
    for (const Certificate& certificate : chain)
        facts.push_back(certificate.facts());
    return facts;
}

} // namespace sign
