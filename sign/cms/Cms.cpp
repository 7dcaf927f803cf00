#include "sign/cms/Cms.h"

#include "base/ByteReader.h"
#include "sign/cms/CmsAttributes.h"

#include <algorithm>
#include <array>

#include <openssl/objects.h>

namespace sign {
namespace {

/// The outer levels have indefinite lengths, as Apple's own tool writes them.
base::Result<base::OwnedBytes> encoded(CMS_ContentInfo* cms) {
    unsigned char* bytes = nullptr;
    const int size = ASN1_item_ndef_i2d(reinterpret_cast<ASN1_VALUE*>(cms), &bytes,
                                        ASN1_ITEM_rptr(CMS_ContentInfo));
    if (size <= 0)
        return openSslError("The signature could not be encoded");
    base::OwnedBytes blob(bytes, bytes + size);
    OPENSSL_free(bytes);
    return blob;
}

bool addTime(CMS_SignerInfo* signer, std::int64_t seconds) {
    const Asn1TimeOwner time(ASN1_TIME_set(nullptr, static_cast<time_t>(seconds)));
    return time && CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_signingTime, time->type,
                                               time.get(), -1) == 1;
}

bool addHashes(CMS_SignerInfo* signer, std::span<const DirectoryDigest> directories) {
    const std::string list = hashListXml(directories);
    if (CMS_signed_add1_attr_by_OBJ(signer, objectOf(hashListOid).get(), V_ASN1_OCTET_STRING,
                                    list.data(), static_cast<int>(list.size())) != 1)
        return false;
    using AttributeOwner = OpenSslOwner<X509_ATTRIBUTE, X509_ATTRIBUTE_free>;
    AttributeOwner agility;
    for (const DirectoryDigest& directory : directories) {
        const base::OwnedBytes element = hashAgilityElement(directory);
        const auto size = static_cast<int>(element.size());
        if (!agility)
            agility.reset(X509_ATTRIBUTE_create_by_OBJ(nullptr, objectOf(hashAgilityOid).get(),
                                                       V_ASN1_SEQUENCE, element.data(), size));
        else if (X509_ATTRIBUTE_set1_data(agility.get(), V_ASN1_SEQUENCE, element.data(), size) !=
                 1)
            return false;
    }
    return agility && CMS_signed_add1_attr(signer, agility.get()) == 1;
}

/// Names the algorithms as Apple does: the hash with a NULL for its parameters, which OpenSSL
/// leaves out, and a signature by RSA together with its hash, where OpenSSL names the key's alone.
void nameAlgorithms(CMS_SignerInfo* signer) {
    X509_ALGOR* hash = nullptr;
    X509_ALGOR* algorithm = nullptr;
    CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &hash, &algorithm);
    X509_ALGOR_set0(hash, OBJ_nid2obj(NID_sha256), V_ASN1_NULL, nullptr);
    const ASN1_OBJECT* name = nullptr;
    X509_ALGOR_get0(&name, nullptr, nullptr, algorithm);
    if (OBJ_obj2nid(name) == NID_rsaEncryption)
        X509_ALGOR_set0(algorithm, OBJ_nid2obj(NID_sha256WithRSAEncryption), V_ASN1_NULL, nullptr);
}

/// Does the same for the set of hash algorithms, which no function of OpenSSL reaches. It stands
/// behind the version, and the levels around it have indefinite lengths.
void nameHashInSet(base::OwnedBytes& cms) {
    constexpr std::array<std::uint8_t, 15> without = {
        0x31, 0x0D, 0x30, 0x0B, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
    constexpr std::array<std::uint8_t, 2> null = {0x05, 0x00};
    const auto set = std::search(cms.begin(), cms.end(), without.begin(), without.end());
    if (set == cms.end())
        return;
    set[1] = static_cast<std::uint8_t>(set[1] + null.size());
    set[3] = static_cast<std::uint8_t>(set[3] + null.size());
    cms.insert(set + without.size(), null.begin(), null.end());
}

CMS_SignerInfo* signerOf(CMS_ContentInfo* cms) {
    return sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms), 0);
}

} // namespace

base::Result<CmsSignature> CmsSignature::make(const Identity& identity,
                                              base::Bytes primaryDirectory,
                                              std::span<const DirectoryDigest> directories,
                                              std::int64_t signingTime) {
    CmsOwner cms(
        CMS_sign(nullptr, nullptr, nullptr, nullptr, CMS_PARTIAL | CMS_DETACHED | CMS_BINARY));
    if (!cms)
        return openSslError("The signature could not be begun");
    for (const Certificate& certificate : identity.chain)
        if (CMS_add1_cert(cms.get(), certificate.handle()) != 1)
            return openSslError("A certificate could not be added to the signature");
    const auto held = identity.key->hold();
    CMS_SignerInfo* signer =
        CMS_add1_signer(cms.get(), identity.chain.front().handle(), identity.key->handle(),
                        EVP_sha256(), CMS_PARTIAL | CMS_NOSMIMECAP | CMS_NOCERTS | CMS_BINARY);
    if (signer == nullptr || !addTime(signer, signingTime) || !addHashes(signer, directories))
        return openSslError("The signer could not be added to the signature");
    const BioOwner content = bioOf(primaryDirectory);
    if (CMS_final(cms.get(), content.get(), nullptr, CMS_DETACHED | CMS_BINARY) != 1)
        return openSslError("The key of " + identity.label + " could not sign");
    nameAlgorithms(signer);
    return CmsSignature(std::move(cms), identity.chain);
}

base::Bytes CmsSignature::value() const {
    const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(signerOf(handle_.get()));
    return {ASN1_STRING_get0_data(value), static_cast<std::size_t>(ASN1_STRING_length(value))};
}

base::Outcome CmsSignature::addTimeStamp(base::Bytes token) {
    if (CMS_unsigned_add1_attr_by_NID(signerOf(handle_.get()), NID_id_smime_aa_timeStampToken,
                                      V_ASN1_SEQUENCE, token.data(),
                                      static_cast<int>(token.size())) != 1)
        return openSslError("The time stamp could not be added to the signature");
    return {};
}

base::Result<base::OwnedBytes> CmsSignature::encoded() const {
    auto bytes = sign::encoded(handle_.get());
    if (bytes)
        nameHashInSet(*bytes);
    return bytes;
}

} // namespace sign
