#include "sign/cms/CmsAttributes.h"

#include "sign/plist/PropertyList.h"

#include <algorithm>

#include <openssl/objects.h>

namespace sign {
namespace {

constexpr std::size_t listedHashSize = 20;

int nidOf(HashType type) {
    switch (type) {
    case HashType::Sha1:
        return NID_sha1;
    case HashType::Sha384:
        return NID_sha384;
    default:
        return NID_sha256;
    }
}

} // namespace

Asn1ObjectOwner objectOf(const char* dotted) {
    return Asn1ObjectOwner(OBJ_txt2obj(dotted, 1));
}

std::string hashListXml(std::span<const DirectoryDigest> directories) {
    std::vector<DirectoryDigest> ordered(directories.begin(), directories.end());
    std::ranges::sort(ordered, {}, &DirectoryDigest::type);
    PropertyArray hashes;
    for (const DirectoryDigest& directory : ordered) {
        const base::Bytes bytes = directory.digest.bytes();
        const base::Bytes cut = bytes.first(std::min(bytes.size(), listedHashSize));
        hashes.emplace_back(PropertyData(cut.begin(), cut.end()));
    }
    PropertyDictionary dictionary;
    dictionary.emplace_back("cdhashes", PropertyValue(std::move(hashes)));
    return applePropertyListXml(PropertyValue(std::move(dictionary)));
}

base::OwnedBytes hashAgilityElement(const DirectoryDigest& directory) {
    const base::OwnedBytes type = derOf(i2d_ASN1_OBJECT, OBJ_nid2obj(nidOf(directory.type)));
    const base::Bytes bytes = directory.digest.bytes();
    const Asn1OctetStringOwner hash(ASN1_OCTET_STRING_new());
    ASN1_OCTET_STRING_set(hash.get(), bytes.data(), static_cast<int>(bytes.size()));
    const base::OwnedBytes value = derOf(i2d_ASN1_OCTET_STRING, hash.get());

    const int content = static_cast<int>(type.size() + value.size());
    base::OwnedBytes element(
        static_cast<std::size_t>(ASN1_object_size(1, content, V_ASN1_SEQUENCE)));
    unsigned char* at = element.data();
    ASN1_put_object(&at, 1, content, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    at = std::copy(type.begin(), type.end(), at);
    std::copy(value.begin(), value.end(), at);
    return element;
}

std::vector<base::OwnedBytes> signedValues(const CMS_SignerInfo* signer, const ASN1_OBJECT* oid) {
    std::vector<base::OwnedBytes> values;
    for (int at = -1; (at = CMS_signed_get_attr_by_OBJ(signer, oid, at)) >= 0;) {
        X509_ATTRIBUTE* attribute = CMS_signed_get_attr(signer, at);
        for (int value = 0; value < X509_ATTRIBUTE_count(attribute); ++value)
            values.push_back(derOf(i2d_ASN1_TYPE, X509_ATTRIBUTE_get0_type(attribute, value)));
    }
    return values;
}

} // namespace sign
