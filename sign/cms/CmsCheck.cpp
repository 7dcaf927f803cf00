#include "base/ByteReader.h"
#include "sign/cms/CertificateCut.h"
#include "sign/cms/Cms.h"
#include "sign/cms/CmsAttributes.h"
#include "sign/cms/TimeStamp.h"
#include "sign/identity/CertificateChain.h"
#include "sign/plist/PropertyList.h"

#include <algorithm>
#include <ctime>
#include <set>
#include <string>

#include <openssl/objects.h>

namespace sign {
namespace {

base::Error wrong(std::string sentence) {
    forgetOpenSslErrors();
    return {base::ErrorKind::Damaged, std::move(sentence)};
}

/// A CMS taken apart.
class SignedMessage {
public:
    static base::Result<SignedMessage> read(base::Bytes cms) {
        SignedMessage message;
        auto cut = cutCertificates(cms);
        if (cut) {
            const unsigned char* at = cut->rest.data();
            const auto size = static_cast<long>(cut->rest.size());
            message.handle_.reset(d2i_CMS_ContentInfo(nullptr, &at, size));
        }
        if (!message.handle_ ||
            OBJ_obj2nid(CMS_get0_type(message.handle_.get())) != NID_pkcs7_signed)
            return wrong("The signature is no CMS.");
        const STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(message.handle_.get());
        if (signers == nullptr || sk_CMS_SignerInfo_num(signers) != 1)
            return wrong("The CMS has not exactly one signer.");
        message.signer_ = sk_CMS_SignerInfo_value(signers, 0);
        message.certificates_ = std::move(cut->certificates);
        return message;
    }

    [[nodiscard]] CMS_SignerInfo* signer() const { return signer_; }
    [[nodiscard]] const std::vector<Certificate>& certificates() const { return certificates_; }

    /// The certificate of the signer, if the message has it.
    [[nodiscard]] const Certificate* leaf() const {
        const auto found = std::ranges::find_if(certificates_, [&](const Certificate& certificate) {
            return CMS_SignerInfo_cert_cmp(signer_, certificate.handle()) == 0;
        });
        return found == certificates_.end() ? nullptr : &*found;
    }

    /// Whether it signs data that it does not hold.
    [[nodiscard]] bool isDetached() const {
        ASN1_OCTET_STRING** content = CMS_get0_content(handle_.get());
        return OBJ_obj2nid(CMS_get0_eContentType(handle_.get())) == NID_pkcs7_data &&
               (content == nullptr || *content == nullptr);
    }

    [[nodiscard]] std::optional<std::int64_t> signingTime() const {
        const auto* time = static_cast<ASN1_TIME*>(CMS_signed_get0_data_by_OBJ(
            signer_, OBJ_nid2obj(NID_pkcs9_signingTime), -3, V_ASN1_UTCTIME));
        if (time == nullptr)
            time = static_cast<ASN1_TIME*>(CMS_signed_get0_data_by_OBJ(
                signer_, OBJ_nid2obj(NID_pkcs9_signingTime), -3, V_ASN1_GENERALIZEDTIME));
        std::tm parts{};
        if (time == nullptr || ASN1_TIME_to_tm(time, &parts) != 1)
            return std::nullopt;
        return static_cast<std::int64_t>(timegm(&parts));
    }

    [[nodiscard]] std::optional<base::OwnedBytes> timeStampToken() const {
        const int at = CMS_unsigned_get_attr_by_NID(signer_, NID_id_smime_aa_timeStampToken, -1);
        X509_ATTRIBUTE* attribute = at < 0 ? nullptr : CMS_unsigned_get_attr(signer_, at);
        if (attribute == nullptr || X509_ATTRIBUTE_count(attribute) < 1)
            return std::nullopt;
        return derOf(i2d_ASN1_TYPE, X509_ATTRIBUTE_get0_type(attribute, 0));
    }

    [[nodiscard]] base::Bytes signatureValue() const {
        const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(signer_);
        return {ASN1_STRING_get0_data(value), static_cast<std::size_t>(ASN1_STRING_length(value))};
    }

private:
    CmsOwner handle_;
    CMS_SignerInfo* signer_ = nullptr;
    std::vector<Certificate> certificates_;
};

/// The hash of the content that the signature covers.
bool matchesContent(const SignedMessage& message, base::Bytes content) {
    X509_ALGOR* algorithm = nullptr;
    CMS_SignerInfo_get0_algs(message.signer(), nullptr, nullptr, &algorithm, nullptr);
    const ASN1_OBJECT* name = nullptr;
    X509_ALGOR_get0(&name, nullptr, nullptr, algorithm);
    const EVP_MD* hash = EVP_get_digestbyobj(name);
    const auto* given = static_cast<ASN1_OCTET_STRING*>(CMS_signed_get0_data_by_OBJ(
        message.signer(), OBJ_nid2obj(NID_pkcs9_messageDigest), -3, V_ASN1_OCTET_STRING));
    unsigned char computed[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    if (hash == nullptr || given == nullptr ||
        EVP_Digest(content.data(), content.size(), computed, &size, hash, nullptr) != 1)
        return false;
    return std::ranges::equal(base::Bytes(computed, size),
                              base::Bytes(ASN1_STRING_get0_data(given),
                                          static_cast<std::size_t>(ASN1_STRING_length(given))));
}

bool namesData(const SignedMessage& message) {
    const auto* type = static_cast<ASN1_OBJECT*>(CMS_signed_get0_data_by_OBJ(
        message.signer(), OBJ_nid2obj(NID_pkcs9_contentType), -3, V_ASN1_OBJECT));
    return type != nullptr && OBJ_obj2nid(type) == NID_pkcs7_data;
}

/// Whether the property list of hashes names exactly these.
bool listsHashes(base::Bytes xml, std::span<const DirectoryDigest> directories) {
    const std::string usual = hashListXml(directories);
    if (base::textOf(xml) == usual)
        return true;
    const auto given = readPropertyList(xml, "the signature");
    const auto wanted = readPropertyList(base::bytesOf(usual), "the signature");
    const PropertyValue* hashes = given ? given->find("cdhashes") : nullptr;
    return hashes != nullptr && wanted && *hashes == *wanted->find("cdhashes");
}

/// Whether the attributes name exactly the code directories that there are. Several directories
/// have to be bound; a single one may stand without.
bool bindsDirectories(const SignedMessage& message, std::span<const DirectoryDigest> directories) {
    const auto* list = static_cast<ASN1_OCTET_STRING*>(CMS_signed_get0_data_by_OBJ(
        message.signer(), objectOf(hashListOid).get(), -3, V_ASN1_OCTET_STRING));
    if (list != nullptr) {
        const base::Bytes xml(ASN1_STRING_get0_data(list),
                              static_cast<std::size_t>(ASN1_STRING_length(list)));
        if (!listsHashes(xml, directories))
            return false;
    }
    const std::vector<base::OwnedBytes> agility =
        signedValues(message.signer(), objectOf(hashAgilityOid).get());
    // As texts: g++ 12 warns of a comparison of bytes that it has made itself.
    std::set<std::string> found;
    for (const base::OwnedBytes& element : agility)
        found.emplace(base::textOf(element));
    std::set<std::string> wanted;
    for (const DirectoryDigest& directory : directories)
        wanted.emplace(base::textOf(hashAgilityElement(directory)));
    // One entry for each kind of hash: which of two would count?
    if (!agility.empty() && (found != wanted || agility.size() != wanted.size()))
        return false;
    return directories.size() < 2 || (list != nullptr && !agility.empty());
}

base::Outcome checkSignature(const SignedMessage& message, const Certificate& leaf,
                             base::Bytes content) {
    if (!message.isDetached() || !namesData(message))
        return wrong("The CMS does not sign detached data.");
    if (!matchesContent(message, content))
        return wrong("The CMS does not match the code directory.");
    CMS_SignerInfo_set1_signer_cert(message.signer(), leaf.handle());
    if (CMS_SignerInfo_verify(message.signer()) != 1)
        return wrong("The signature over the attributes is wrong.");
    return {};
}

base::Outcome checkChain(const std::vector<Certificate>& chain, std::int64_t when) {
    if (!chain.back().isIssuedBy(chain.back()))
        return wrong("The certificate chain ends at \"" + chain.back().label() +
                     "\", which is no root.");
    if (!chain.front().signsCode(false))
        return wrong("The certificate \"" + chain.front().label() + "\" is not for code signing.");
    for (const Certificate& certificate : chain) {
        if (!certificate.isValidAt(when))
            return wrong("The certificate \"" + certificate.label() +
                         "\" was not valid when the code was signed.");
    }
    return {};
}

} // namespace

base::Result<CmsFacts> readCms(base::Bytes cms) {
    auto message = SignedMessage::read(cms);
    if (!message)
        return message.error();
    CmsFacts facts{.signingTime = message->signingTime()};
    if (const Certificate* leaf = message->leaf())
        facts.chain = chainAsFarAsKnown(*leaf, message->certificates());
    if (const auto token = message->timeStampToken())
        facts.timeStamp = timeOfToken(*token);
    return facts;
}

base::Result<CmsFacts> checkCms(base::Bytes cms, base::Bytes primaryDirectory,
                                std::span<const DirectoryDigest> directories) {
    auto message = SignedMessage::read(cms);
    if (!message)
        return message.error();
    const Certificate* leaf = message->leaf();
    if (leaf == nullptr)
        return wrong("The signer's certificate is not in the CMS.");
    if (auto checked = checkSignature(*message, *leaf, primaryDirectory); !checked)
        return checked.error();
    if (!bindsDirectories(*message, directories))
        return wrong("The CMS does not name the code directories that there are.");

    CmsFacts facts{.chain = chainAsFarAsKnown(*leaf, message->certificates()),
                   .signingTime = message->signingTime()};
    if (const auto token = message->timeStampToken()) {
        auto time = checkToken(*token, message->signatureValue(), facts.chain.back());
        if (!time)
            return time.error();
        facts.timeStamp = *time;
    }
    const std::int64_t now = std::time(nullptr);
    const std::int64_t when = facts.timeStamp.value_or(facts.signingTime.value_or(now));
    if (when > now + secondsOfGrace)
        return wrong("The code was signed in the future.");
    if (auto checked = checkChain(facts.chain, when); !checked)
        return checked.error();
    return facts;
}

} // namespace sign
