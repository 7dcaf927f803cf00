#include "base/ByteReader.h"
#include "sign/identity/IdentityImport.h"
#include "sign/identity/IdentityList.h"
#include "sign/identity/KeyFile.h"
#include "sign/identity/TokenUri.h"
#include "tests/sign/TestAuthority.h"
#include "tests/support/ExpectFails.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <thread>

#include <gmock/gmock.h>
#include <openssl/pem.h>
#include <openssl/provider.h>
#include <sys/stat.h>

namespace sign {
namespace {

using testing::AllOf;
using testing::HasSubstr;

std::string pemOf(const std::vector<Certificate>& certificates) {
    const BioOwner sink(BIO_new(BIO_s_mem()));
    for (const Certificate& certificate : certificates)
        PEM_write_bio_X509(sink.get(), certificate.handle());
    return std::string(base::textOf(bytesOf(sink.get())));
}

std::string keyPemOf(const Issued& issued) {
    const BioOwner sink(BIO_new(BIO_s_mem()));
    PEM_write_bio_PrivateKey(sink.get(), issued.key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    return std::string(base::textOf(bytesOf(sink.get())));
}

/// PKCS#12 with the passphrase "test".
std::string exported(const Issued& leaf, const std::vector<Certificate>& issuers, int keyCipher,
                     int certificateCipher) {
    STACK_OF(X509)* others = sk_X509_new_null();
    for (const Certificate& issuer : issuers)
        sk_X509_push(others, issuer.handle());
    const OpenSslOwner<PKCS12, PKCS12_free> file(
        PKCS12_create("test", nullptr, leaf.key.get(), leaf.certificate.handle(), others, keyCipher,
                      certificateCipher, 0, 0, 0));
    sk_X509_free(others);
    EXPECT_NE(file, nullptr) << openSslReason();
    return std::string(base::textOf(derOf(i2d_PKCS12, file.get())));
}

/// An identity folder, a passphrase in a file and no desktop.
class IdentityTest : public testing::Test {
public:
    IdentityTest() {
        files.makeFile("home/roots/root.pem", pemOf({made.root.certificate}));
        ::chmod(files.path("home").c_str(), 0700);
        makeSecret("pass", "a long passphrase");
    }

    void makeSecret(const std::string& name, const std::string& text) const {
        files.makeFile(name, text + "\n");
        ::chmod(files.path(name).c_str(), 0600);
    }

    /// As the program imports; the sentence if it fails.
    static std::string import(const ImportOptions& options, const std::string& passphrase = "") {
        const auto folder = IdentityFolder::ofUser();
        if (!folder)
            return folder.error().sentence;
        auto found = findInFiles(*folder, options, Secret(passphrase));
        if (!found)
            return found.error().sentence;
        if (found->key)
            if (const auto added = folder->addKey(found->key.get()); !added)
                return added.error().sentence;
        const auto added = folder->addCertificate(found->chain);
        return added ? "" : added.error().sentence;
    }
    static std::string importFile(const std::string& file, const std::string& passphrase = "") {
        return import({.file = file, .keyFile = {}, .chainFile = {}}, passphrase);
    }

    std::string makePem(const Issued& leaf, const std::vector<Certificate>& chain) const {
        std::vector<Certificate> all = {leaf.certificate};
        all.insert(all.end(), chain.begin(), chain.end());
        return files.makeFile(std::to_string(++count_) + ".pem", keyPemOf(leaf) + pemOf(all));
    }

    TemporaryFolder files;
    const Authorities& made = Authorities::shared();
    const std::vector<Certificate> issuers = {made.middle.certificate, made.root.certificate};

private:
    mutable int count_ = 0;
    ScopedEnvironment folder_{"KELPMORAY_IDENTITIES", files.path("home")};
    ScopedEnvironment passphrase_{"KELPMORAY_PASSPHRASE_FILE", files.path("pass")};
    ScopedEnvironment bus_{"DBUS_SESSION_BUS_ADDRESS", std::nullopt};
};

TEST_F(IdentityTest, ImportsEveryFormInWhichIdentitiesCome) {
    OSSL_PROVIDER_load(nullptr, "default");
    OSSL_PROVIDER_load(nullptr, "legacy");
    const Issued& leaf = made.leaf;
    struct Case {
        const char* form;
        ImportOptions options;
    };
    const std::string chain = files.makeFile("chain.pem", pemOf(issuers));
    const std::string key = files.makeFile("key.pem", keyPemOf(leaf));
    const base::OwnedBytes der = leaf.certificate.der();
    const std::string certificate = files.makeFile("leaf.cer", std::string(base::textOf(der)));
    const Case cases[] = {
        {"PKCS#12 of today",
         {files.makeFile("new.p12", exported(leaf, issuers, NID_aes_256_cbc, NID_aes_256_cbc)), "",
          ""}},
        {"PKCS#12 of old programs",
         {files.makeFile("old.p12", exported(leaf, issuers, NID_pbe_WithSHA1And3_Key_TripleDES_CBC,
                                             NID_pbe_WithSHA1And40BitRC2_CBC)),
          "", ""}},
        {"PEM with all", {makePem(leaf, issuers), "", ""}},
        {"DER, key and chain", {certificate, key, chain}},
    };
    const std::string kept = files.path("home/certificates");
    for (const Case& each : cases) {
        std::filesystem::remove_all(kept);
        std::filesystem::remove_all(files.path("home/keys"));
        EXPECT_EQ(import(each.options, "test"), "") << each.form;
        const auto identity = findIdentity("Application: Jo");
        ASSERT_TRUE(identity) << each.form << ": " << identity.error().sentence;
        EXPECT_EQ(identity->chain.size(), 3U) << each.form;
        EXPECT_EQ(EVP_PKEY_eq(identity->key->handle(), leaf.key.get()), 1) << each.form;
    }
    // A certificate alone finds the key that is here.
    std::filesystem::remove_all(kept);
    EXPECT_EQ(import({certificate, "", chain}), "");
    EXPECT_TRUE(findIdentity(listIdentities()->front().hash));
}

TEST_F(IdentityTest, RefusesWhatIsNoWholeIdentity) {
    const std::string leafOnly = makePem(made.leaf, {});
    const Issued noAuthority = issue("No Authority", &made.root, forCode, {}, curveKey());
    struct Case {
        std::string file;
        std::string passphrase;
        const char* sentence;
    };
    const Case cases[] = {
        {leafOnly, "", "The certificate \"Test Code Authority\", which issued"},
        {makePem(made.leaf, {made.middle.certificate}), "", ""}, // roots/ has its root
        {files.makeFile("p12", exported(made.leaf, issuers, NID_aes_256_cbc, NID_aes_256_cbc)),
         "wrong", "passphrase does not open"},
        {files.makeFile("alone.pem", pemOf({made.clock.certificate})), "",
         "The key of \"Test Clock\""},
        {makePem(made.clock, issuers), "", "is not for code signing"},
        {files.makeFile("mixed.pem", keyPemOf(made.clock) + pemOf({made.leaf.certificate})), "",
         "belongs to none of its certificates"},
        {files.makeFile("nonsense", "nonsense"), "", "holds no private key"},
        {makePem(issue("Any Use", &made.middle, {forCode[0]}, {}, curveKey()), issuers), "",
         "is not for code"},
        {makePem(issue("Pss", &made.middle, forCode, {}, keyOfKind("RSA-PSS")), issuers), "",
         "a key that is neither plain RSA nor ECDSA"},
        {makePem(issue("Below", &noAuthority, forCode, {}, curveKey()),
                 {noAuthority.certificate, made.root.certificate}),
         "", "\"No Authority\" that is given has not issued \"Below\""},
    };
    for (const Case& each : cases)
        EXPECT_THAT(importFile(each.file, each.passphrase), HasSubstr(each.sentence));
    EXPECT_EQ(listIdentities()->size(), 1U);
}

TEST_F(IdentityTest, KeepsKeysEncryptedAndForTheUserAlone) {
    ASSERT_EQ(importFile(makePem(made.leaf, issuers)), "");
    const std::string key = files.path("home/keys/" + keyIdOf(made.leaf.certificate) + ".pem");
    EXPECT_THAT(contentOf(key), HasSubstr("BEGIN ENCRYPTED PRIVATE KEY"));
    struct stat status {};
    ASSERT_EQ(::stat(key.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    ASSERT_EQ(::stat(files.path("home/keys").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);

    makeSecret("wrong", "another");
    files.makeFile("open", "a long passphrase");
    ::chmod(files.path("open").c_str(), 0644);
    const auto sentence = [] { return findIdentity("Jo").error().sentence; };
    {
        const ScopedEnvironment none("KELPMORAY_PASSPHRASE_FILE", std::nullopt);
        EXPECT_THAT(sentence(),
                    AllOf(HasSubstr("is locked"), HasSubstr("KELPMORAY_PASSPHRASE_FILE")));
        makeSecret("credentials/kelpmoray-passphrase", "a long passphrase");
        const ScopedEnvironment service("CREDENTIALS_DIRECTORY", files.path("credentials"));
        EXPECT_TRUE(findIdentity("Jo"));
    }
    {
        const ScopedEnvironment wrong("KELPMORAY_PASSPHRASE_FILE", files.path("wrong"));
        EXPECT_THAT(sentence(), HasSubstr("the passphrase does not open it"));
    }
    {
        makeSecret("empty", "");
        const ScopedEnvironment empty("KELPMORAY_PASSPHRASE_FILE", files.path("empty"));
        EXPECT_THAT(sentence(), HasSubstr("empty is empty"));
        ASSERT_EQ(::mkfifo(files.path("pipe").c_str(), 0600), 0);
        const ScopedEnvironment pipe("KELPMORAY_PASSPHRASE_FILE", files.path("pipe"));
        EXPECT_THAT(sentence(), HasSubstr("pipe is empty")) << "nobody writes into it";
    }
    {
        const ScopedEnvironment open("KELPMORAY_PASSPHRASE_FILE", files.path("open"));
        EXPECT_THAT(sentence(), HasSubstr("chmod 600"));
    }
    ::chmod(key.c_str(), 0640);
    EXPECT_THAT(sentence(), HasSubstr("chmod 600"));
    ::chmod(files.path("home").c_str(), 0750);
    EXPECT_THAT(sentence(), HasSubstr("chmod 700"));
}

TEST_F(IdentityTest, TellsWhyAnIdentityCannotSign) {
    const auto folder = IdentityFolder::ofUser();
    const auto keep = [&](const Issued& leaf, const std::vector<Certificate>& chain, bool withKey) {
        std::vector<Certificate> all = {leaf.certificate};
        all.insert(all.end(), chain.begin(), chain.end());
        EXPECT_TRUE(folder->addCertificate(all));
        EXPECT_TRUE(!withKey || folder->addKey(leaf.key.get()));
    };
    const Issued old =
        issue("Old Authority", &made.root, forIssuers, {-10 * day, -day}, curveKey());
    std::vector<Extension> marked = forIssuers;
    marked.push_back({"1.2.840.113635.100.6.2.6", "DER:0500"});
    const Issued developers = issue("Developers' Authority", &made.root, marked, {}, curveKey());
    marked = forCode;
    marked.push_back({"1.2.840.113635.100.6.1.13", "critical,DER:0500"});
    keep(made.leaf, issuers, true);
    keep(issue("Any Use", &made.middle, {forCode[0]}, {}, curveKey()), issuers, true);
    keep(issue("Certifier", &made.middle, {forIssuers[1], forCode[1]}, {}, curveKey()), issuers,
         true);
    keep(issue("Curve", &made.middle, forCode, {}, curveKey()), issuers, true);
    keep(issue("Edwards", &made.middle, forCode, {}, keyOfKind("ED25519")), issuers, true);
    keep(issue("Expired", &made.middle, forCode, {-10 * day, -day}), issuers, true);
    keep(issue("Future", &made.middle, forCode, {day, 2 * day}), issuers, true);
    keep(issue("Half", &made.middle, forCode), {made.middle.certificate}, true);
    keep(issue("Keyless", &made.middle, forCode), issuers, false);
    keep(issue("Other", &made.otherRoot, forCode), {made.otherRoot.certificate}, true);
    keep(issue("Self", nullptr, forCode), {}, true);
    keep(issue("Teamless", &developers, marked, {}, curveKey()),
         {developers.certificate, made.root.certificate}, true);
    keep(issue("Under", &old, forCode, {}, curveKey()), {old.certificate, made.root.certificate},
         true);
    keep(issue("Watch", &made.middle, forTime), issuers, true);

    const std::vector<std::pair<std::string, IdentityFault>> wanted = {
        {"Any Use", IdentityFault::None}, // as the platform's tool lists it
        {"Certifier", IdentityFault::NotForCode},
        {"Curve", IdentityFault::None},
        {made.leaf.certificate.label(), IdentityFault::None},
        {"Edwards", IdentityFault::WrongKey},
        {"Expired", IdentityFault::Expired},
        {"Future", IdentityFault::NotYetValid},
        {"Half", IdentityFault::ChainIncomplete},
        {"Keyless", IdentityFault::NoKey},
        {"Other", IdentityFault::NotTrusted},
        {"Self", IdentityFault::None},
        {"Teamless", IdentityFault::None},
        {"Under", IdentityFault::Expired},
        {"Watch", IdentityFault::NotForCode}};
    std::vector<std::pair<std::string, IdentityFault>> listed;
    const auto identities = listIdentities();
    for (const ListedIdentity& identity : *identities)
        listed.emplace_back(identity.label, identity.fault);
    EXPECT_EQ(listed, wanted);

    EXPECT_EQ(findIdentity("Nobody").error().sentence, "Nobody: no identity found");
    EXPECT_EQ(findIdentity("").error().kind, base::ErrorKind::NotFound);
    for (const auto& [name, sentence] : std::vector<std::pair<const char*, const char*>>{
             {"Any Use", "is not for code signing"},
             {"Edwards", "its key is neither plain RSA nor ECDSA"},
             {"Expired", "its certificate has expired"},
             {"Half",
              "certificate \"Test Root CA\", which issued \"Test Code Authority\", is missing"},
             {"Teamless", "names no team (OU)"},
             {"Under", "\"Old Authority\" in its chain has expired"}})
        EXPECT_THAT(findIdentity(name).error().sentence, HasSubstr(sentence));
    EXPECT_EQ(findIdentity("el").error().kind, base::ErrorKind::Conflict); // Developer, Self
}

TEST_F(IdentityTest, RemovesAKeyWithItsLastCertificate) {
    ASSERT_EQ(importFile(makePem(made.leaf, issuers)), "");
    const auto folder = IdentityFolder::ofUser();
    const std::string id = keyIdOf(made.leaf.certificate);
    CertificateOwner twin(X509_dup(made.leaf.certificate.handle()));
    ASN1_INTEGER_set(X509_get_serialNumber(twin.get()), 4711);
    X509_sign(twin.get(), made.middle.key.get(), EVP_sha256());
    ASSERT_TRUE(folder->addCertificate({Certificate(std::move(twin))}));
    files.makeFile("home/certificates/damaged.pem", "nothing");
    ASSERT_EQ(folder->certificates().size(), 2U);
    EXPECT_TRUE(folder->remove(folder->certificates().front()));
    EXPECT_TRUE(folder->hasKey(id));
    EXPECT_TRUE(folder->remove(folder->certificates().front()));
    EXPECT_FALSE(folder->hasKey(id));
}

TEST(TokenUri, DecodesItsAttributes) {
    const auto attributes = tokenUriAttributes("pkcs11:token=a%20b%C3%A4;object=x?pin-value=1");
    ASSERT_TRUE(attributes);
    EXPECT_EQ(attributes->at("token"), "a bä");
    EXPECT_EQ(attributes->at("pin-value"), "1");
    for (const char* wrong : {"token=x", "pkcs11:token", "pkcs11:token=%4", "pkcs11:token=%4g"})
        EXPECT_FAILS(tokenUriAttributes(wrong), Usage);
}

} // namespace
} // namespace sign
