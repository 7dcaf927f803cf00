#include "sign/cms/Cms.h"

#include "base/ByteReader.h"
#include "sign/cms/CmsAttributes.h"
#include "sign/cms/TimeStamp.h"
#include "tests/sign/TestAuthority.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <functional>

#include <openssl/pem.h>

namespace sign {
namespace {

using testing::Test;

const std::string directory = "the primary code directory";
const std::string alternate = "another code directory";

auto placeOf(const base::OwnedBytes& part, base::OwnedBytes& whole) {
    return std::search(whole.begin(), whole.end(), part.begin(), part.end());
}

DirectoryDigest digestWith(HashType type, const std::string& bytes) {
    return {type, digestOf(type, base::bytesOf(bytes))};
}

std::vector<DirectoryDigest> bothDirectories() {
    return {digestWith(HashType::Sha1, directory), digestWith(HashType::Sha256, alternate)};
}

CmsSignature signatureBy(const Identity& identity, std::int64_t time = std::time(nullptr)) {
    return *CmsSignature::make(identity, base::bytesOf(directory), bothDirectories(), time);
}

base::OwnedBytes cmsBy(const Identity& identity, std::int64_t time = std::time(nullptr)) {
    return *signatureBy(identity, time).encoded();
}

Identity usualIdentity() {
    const Authorities& made = Authorities::shared();
    return identityOf(made.leaf, {made.middle.certificate, made.root.certificate});
}

/// With a token over `stamped`, or over its own signature if that is empty.
base::OwnedBytes stamp(CmsSignature cms, const Issued& clock,
                       const std::vector<Certificate>& issuers,
                       const base::OwnedBytes& stamped = {}) {
    const base::Bytes bytes = stamped.empty() ? cms.value() : stamped;
    EXPECT_TRUE(cms.addTimeStamp(tokenOf({.imprint = sha256Of(bytes)}, clock, issuers)));
    return *cms.encoded();
}

/// Signed by openssl's own means: of the attributes that name the directories it has one, with
/// these hashes, or none.
base::OwnedBytes cmsOfOpenSsl(const std::vector<DirectoryDigest>& named = {}) {
    const Authorities& made = Authorities::shared();
    constexpr unsigned flags = CMS_BINARY | CMS_DETACHED | CMS_NOSMIMECAP | CMS_PARTIAL;
    const CmsOwner cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
    CMS_SignerInfo* signer = CMS_add1_signer(cms.get(), made.leaf.certificate.handle(),
                                             made.leaf.key.get(), EVP_sha256(), flags);
    for (const DirectoryDigest& one : named) {
        const base::OwnedBytes element = hashAgilityElement(one);
        CMS_signed_add1_attr_by_OBJ(signer, objectOf(hashAgilityOid).get(), V_ASN1_SEQUENCE,
                                    element.data(), static_cast<int>(element.size()));
    }
    for (const Certificate& issuer : {made.middle.certificate, made.root.certificate})
        CMS_add1_cert(cms.get(), issuer.handle());
    CMS_final(cms.get(), bioOf(base::bytesOf(directory)).get(), nullptr, flags);
    return derOf(i2d_CMS_ContentInfo, cms.get());
}

/// The test root counts as Apple's, as the folder of the user says.
class CmsTest : public Test {
public:
    CmsTest() {
        const BioOwner pem(BIO_new(BIO_s_mem()));
        PEM_write_bio_X509(pem.get(), Authorities::shared().root.certificate.handle());
        const base::OwnedBytes bytes = bytesOf(pem.get());
        folder_.makeFile("roots/root.pem", std::string(base::textOf(bytes)));
    }

    const Authorities& made = Authorities::shared();

private:
    TemporaryFolder folder_;
    ScopedEnvironment environment_{"KELPMORAY_IDENTITIES", folder_.path()};
};

TEST_F(CmsTest, SaysWhoSignedAndWhen) {
    const std::int64_t time = std::time(nullptr) - 1000;
    const base::OwnedBytes plain = cmsBy(usualIdentity(), time);
    const base::OwnedBytes stamped =
        stamp(signatureBy(usualIdentity(), time), made.clock, {made.root.certificate});
    const auto facts = checkCms(stamped, base::bytesOf(directory), bothDirectories());
    ASSERT_TRUE(facts) << facts.error().sentence;
    EXPECT_EQ(facts->chain, usualIdentity().chain);
    EXPECT_EQ(facts->signingTime, time);
    EXPECT_GE(facts->timeStamp.value_or(0), time + 1000);
    EXPECT_FALSE(checkCms(plain, base::bytesOf(directory), bothDirectories())->timeStamp);
}

TEST_F(CmsTest, HasTheFormOfThePlatform) {
    base::OwnedBytes cms = cmsBy(usualIdentity());
    // ContentInfo, signedData, [0], SignedData, version, the hash with its parameters.
    const base::OwnedBytes begin = {0x30, 0x80, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D,
                                    0x01, 0x07, 0x02, 0xA0, 0x80, 0x30, 0x80, 0x02, 0x01, 0x01,
                                    0x31, 0x0F, 0x30, 0x0D, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                    0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00};
    ASSERT_GT(cms.size(), begin.size());
    EXPECT_TRUE(std::ranges::equal(begin, base::Bytes(cms).first(begin.size())));
    EXPECT_TRUE(std::ranges::equal(base::OwnedBytes(6, 0), base::Bytes(cms).last(6)));

    std::vector<base::OwnedBytes> sorted;
    for (const Certificate& certificate : usualIdentity().chain)
        sorted.push_back(certificate.der());
    std::ranges::sort(sorted, [](const base::OwnedBytes& a, const base::OwnedBytes& b) {
        return std::ranges::lexicographical_compare(a, b);
    });
    base::OwnedBytes together;
    for (const base::OwnedBytes& der : sorted)
        together.insert(together.end(), der.begin(), der.end());
    EXPECT_NE(placeOf(together, cms), cms.end()) << "certificates in another order";
    const std::string list = "<plist version=\"1.0\">\n<dict>\n\t<key>cdhashes</key>\n\t<array>\n"
                             "\t\t<data>\n\t\t";
    EXPECT_NE(base::textOf(cms).find(list), std::string_view::npos);
    // sha256WithRSAEncryption, not the name of the key alone
    const base::OwnedBytes algorithm = {0x30, 0x0D, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86,
                                        0xF7, 0x0D, 0x01, 0x01, 0x0B, 0x05, 0x00, 0x04};
    EXPECT_NE(placeOf(algorithm, cms), cms.end());
}

TEST_F(CmsTest, NoticesWhatIsWrong) {
    const Issued usedUp = issue("Used Up", &made.middle, forCode, {-10 * day, -5 * day});
    const Issued another = issue("Not For Code", &made.middle, forTime);
    const std::int64_t now = std::time(nullptr);
    const std::vector<Certificate> issuers = {made.middle.certificate, made.root.certificate};
    const CmsSignature signature = signatureBy(usualIdentity());
    const base::OwnedBytes good = *signature.encoded();
    const base::OwnedBytes value(signature.value().begin(), signature.value().end());
    base::OwnedBytes altered = good;
    placeOf(value, altered)[40] ^= 1U;

    struct Case {
        const char* what;
        base::OwnedBytes cms;
        std::string sentence; ///< a part of it; empty if nothing is wrong
        std::vector<DirectoryDigest> directories = bothDirectories();
        std::string primary = directory;
    };
    std::vector<DirectoryDigest> swapped = bothDirectories();
    swapped[1] = digestWith(HashType::Sha256, directory);
    const Case cases[] = {
        {"nothing", good, ""},
        {"another directory", good, "does not match the code directory", bothDirectories(), "x"},
        {"another alternate", good, "does not name the code directories", swapped},
        {"one directory less", good, "does not name the code directories", {swapped[0]}},
        {"two that nothing binds", cmsOfOpenSsl(), "does not name the code directories"},
        {"one that nothing else binds", cmsOfOpenSsl(), "", {swapped[0]}},
        {"one that is named", cmsOfOpenSsl({swapped[0]}), "", {swapped[0]}},
        {"one that is named twice",
         cmsOfOpenSsl({swapped[0], swapped[0]}),
         "does not name the code directories",
         {swapped[0]}},
        {"the signature's bytes", altered, "signature over the attributes is wrong"},
        {"no root", cmsBy(identityOf(made.leaf, {made.middle.certificate})), "which is no root"},
        {"the usage", cmsBy(identityOf(another, issuers)), "is not for code signing"},
        {"expired now, not then", cmsBy(identityOf(usedUp, issuers), now - 7 * day), ""},
        {"expired then", cmsBy(identityOf(usedUp, issuers), now - 2 * day), "was not valid"},
        {"the secure time counts",
         stamp(signatureBy(identityOf(usedUp, issuers), now - 7 * day), made.clock, issuers),
         "was not valid"},
        {"the future", cmsBy(usualIdentity(), now + day), "in the future"},
        {"a stamp of other bytes",
         stamp(signatureBy(usualIdentity()), made.clock, issuers, base::OwnedBytes{1, 2, 3}),
         "time stamp is not valid"},
        {"a clock of another root, beside Apple's",
         stamp(signatureBy(usualIdentity()), made.otherClock,
               {made.otherRoot.certificate, made.root.certificate}),
         "time stamp is not valid"},
        {"a clock for code", stamp(signatureBy(usualIdentity()), made.leaf, issuers),
         "time stamp is not valid"},
        {"no CMS", base::OwnedBytes{0x30, 0x03, 0x02, 0x01, 0x01}, "no CMS"},
    };
    for (const Case& each : cases) {
        const auto checked = checkCms(each.cms, base::bytesOf(each.primary), each.directories);
        const std::string sentence = checked ? "" : checked.error().sentence;
        if (each.sentence.empty())
            EXPECT_EQ(sentence, "") << each.what;
        else
            EXPECT_NE(sentence.find(each.sentence), std::string::npos)
                << each.what << ": " << sentence;
    }
}

TEST_F(CmsTest, TakesAnyRootOfAClockForCodeThatIsNotApples) {
    const Issued leaf = issue("Self Made: Jo (LOCAL)", nullptr, forCode);
    const base::OwnedBytes cms =
        stamp(signatureBy(identityOf(leaf, {})), made.otherClock, {made.otherRoot.certificate});
    const auto checked = checkCms(cms, base::bytesOf(directory), bothDirectories());
    EXPECT_TRUE(checked) << checked.error().sentence;
}

} // namespace
} // namespace sign
