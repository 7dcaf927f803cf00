#include "sign/identity/IdentityFolder.h"

#include "base/ByteReader.h"
#include "base/Printable.h"
#include "base/ReplacedFile.h"
#include "sign/files/FileTree.h"
#include "sign/identity/CertificateChain.h"
#include "sign/identity/CertificateFile.h"
#include "sign/identity/KeyFile.h"
#include "sign/identity/SecretService.h"
#include "sign/identity/Token.h"
#include "sign/identity/TrustedRoots.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <openssl/pem.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sign {
namespace {

namespace fs = std::filesystem;

constexpr mode_t forOthers = 077;

base::Error openToOthers(const std::string& path, const char* remedy) {
    return {base::ErrorKind::Denied,
            "Others can reach the signing keys through " + path + ". " + remedy};
}

std::string capitals(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c >= 'a' && c <= 'f' ? char(c - 'a' + 'A') : c; });
    return text;
}

base::Result<Secret> passphraseIn(const std::string& file) {
    auto secret = Secret::inFile(file);
    if (secret && secret->empty())
        return base::Error{base::ErrorKind::Damaged,
                           "The first line of " + file +
                               " is empty. Put a passphrase there, which protects the keys."};
    return secret;
}

/// Waits until no other process adds to the folder.
class FolderLock {
public:
    explicit FolderLock(const std::string& folder)
        : folder_(base::FileDescriptor::openAt(AT_FDCWD, folder.c_str(), O_RDONLY | O_DIRECTORY)) {
        while (::flock(folder_.get(), LOCK_EX) != 0 && errno == EINTR) {
        }
    }

private:
    base::FileDescriptor folder_;
};

} // namespace

base::Result<IdentityFolder> IdentityFolder::ofUser() {
    const std::string path = identityFolderPath();
    if (path.empty())
        return base::Error{base::ErrorKind::NotFound,
                           "There is no place for identities. Set HOME or KELPMORAY_IDENTITIES."};
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        if (errno != ENOENT && errno != ENOTDIR)
            return base::systemError("read", path, errno);
        return IdentityFolder(path);
    }
    if ((status.st_mode & forOthers) != 0)
        return openToOthers(path, "Set its permissions with chmod 700.");
    if (status.st_uid != ::geteuid())
        return openToOthers(path, "Use a folder of your own.");
    return IdentityFolder(path);
}

std::vector<KeptCertificate> IdentityFolder::certificates() const {
    std::vector<KeptCertificate> all;
    std::error_code code;
    for (fs::directory_iterator file(fs::path(path_) / "certificates", code), end;
         !code && file != end; file.increment(code)) {
        if (file->path().extension() != ".pem")
            continue;
        auto chain = readCertificates(file->path().string());
        if (!chain) { // the others are still good
            std::fprintf(stderr, "%s It is left out.\n",
                         base::printable(chain.error().sentence).c_str());
            continue;
        }
        const Certificate& leaf = chain->front();
        KeptCertificate kept{.hash = capitals(base::hex(leaf.sha1().bytes())),
                             .chain = chainAsFarAsKnown(leaf, *chain),
                             .known = *chain,
                             .keyId = keyIdOf(leaf)};
        kept.hasKey = hasKey(kept.keyId);
        all.push_back(std::move(kept));
    }
    std::ranges::sort(all, [](const KeptCertificate& a, const KeptCertificate& b) {
        return std::pair(a.chain.front().label(), a.hash) <
               std::pair(b.chain.front().label(), b.hash);
    });
    return all;
}

std::vector<Certificate> IdentityFolder::pool() const {
    std::vector<Certificate> pool;
    for (const char* folder : {"certificates", "roots"}) {
        std::error_code code;
        for (fs::directory_iterator file(fs::path(path_) / folder, code), end; !code && file != end;
             file.increment(code)) {
            if (auto chain = readCertificates(file->path().string()))
                pool.insert(pool.end(), chain->begin(), chain->end());
        }
    }
    return pool;
}

bool IdentityFolder::hasKey(const std::string& keyId) const {
    std::error_code code;
    return fs::exists(fs::path(path_) / "keys" / (keyId + ".pem"), code) ||
           fs::exists(fs::path(path_) / "tokens" / keyId, code);
}

base::Result<std::shared_ptr<SigningKey>>
IdentityFolder::openKey(const KeptCertificate& kept) const {
    hideMemory();
    if (auto uri = readPrivate("tokens/" + kept.keyId)) {
        auto token = openTokenKey(std::string(base::textOf(*uri)));
        if (!token)
            return token.error();
        return token->key;
    }
    const std::string& name = kept.chain.front().label();
    auto bytes = readPrivate("keys/" + kept.keyId + ".pem");
    if (!bytes)
        return bytes.error();
    auto secret = passphrase(false);
    if (!secret)
        return base::Error{secret.error().kind,
                           "The key of \"" + name + "\" is locked. " + secret.error().sentence};
    auto key = decodedKey(*bytes, *secret, "the file of \"" + name + "\"");
    if (!key)
        return base::Error{
            base::ErrorKind::Unavailable,
            "The key of \"" + name +
                "\" is locked: the passphrase does not open it. Name the file with the "
                "right one in KELPMORAY_PASSPHRASE_FILE."};
    return std::make_shared<SigningKey>(*std::move(key), false);
}

base::Outcome IdentityFolder::addKey(EVP_PKEY* key) const {
    if (hasKey(keyIdOf(key)))
        return {};
    if (auto made = make(); !made)
        return made;
    const FolderLock lock(path_); // or two at once would each make a passphrase
    auto secret = passphrase(true);
    if (!secret)
        return secret.error();
    auto pem = encryptedPem(key, *secret);
    if (!pem)
        return pem.error();
    return write("keys/" + keyIdOf(key) + ".pem", *pem);
}

base::Outcome IdentityFolder::addToken(const std::string& keyId, const std::string& uri) const {
    if (auto made = make(); !made)
        return made;
    return write("tokens/" + keyId, base::bytesOf(uri));
}

base::Outcome IdentityFolder::addCertificate(const std::vector<Certificate>& chain) const {
    if (auto made = make(); !made)
        return made;
    const BioOwner sink(BIO_new(BIO_s_mem()));
    for (const Certificate& certificate : chain)
        PEM_write_bio_X509(sink.get(), certificate.handle());
    return write("certificates/" + capitals(base::hex(chain.front().sha1().bytes())) + ".pem",
                 bytesOf(sink.get()));
}

base::Outcome IdentityFolder::remove(const KeptCertificate& kept) const {
    const FolderLock lock(path_);
    const auto all = certificates();
    const std::string certificate = path_ + "/certificates/" + kept.hash + ".pem";
    if (::unlink(certificate.c_str()) != 0)
        return base::systemError("remove", certificate, errno);
    const bool isShared = std::ranges::any_of(all, [&](const KeptCertificate& other) {
        return other.hash != kept.hash && other.keyId == kept.keyId;
    });
    if (isShared)
        return {};
    for (const std::string& key :
         {path_ + "/keys/" + kept.keyId + ".pem", path_ + "/tokens/" + kept.keyId})
        if (::unlink(key.c_str()) != 0 && errno != ENOENT)
            return base::systemError("remove", key, errno);
    return {};
}

base::Result<Secret> IdentityFolder::passphrase(bool mayCreate) {
    if (const char* file = std::getenv("KELPMORAY_PASSPHRASE_FILE"); file && *file)
        return passphraseIn(file);
    if (const char* folder = std::getenv("CREDENTIALS_DIRECTORY")) {
        const std::string file = std::string(folder) + "/kelpmoray-passphrase";
        if (::access(file.c_str(), F_OK) == 0)
            return passphraseIn(file);
    }
    if (auto kept = passphraseOfService())
        return *std::move(kept);
    if (mayCreate) {
        Secret made = Secret::random();
        if (!made.empty() && keepInService(made))
            return made;
    }
    return base::Error{
        base::ErrorKind::Unavailable,
        "No service of the desktop keeps its passphrase. Put one into a file that only "
        "you can read and name it in KELPMORAY_PASSPHRASE_FILE."};
}

base::Outcome IdentityFolder::make() const {
    std::error_code code;
    fs::create_directories(fs::path(path_).parent_path(), code);
    for (const char* part : {"", "/certificates", "/keys", "/tokens"}) {
        const std::string folder = path_ + part;
        if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
            return base::systemError("make the folder", folder, errno);
    }
    return {};
}

base::Outcome IdentityFolder::write(const std::string& name, base::Bytes bytes) const {
    const std::string path = path_ + '/' + name;
    auto file = base::ReplacedFile::createFor(path);
    if (!file)
        return file.error();
    if (::fchmod(file->descriptor(), 0600) != 0 || !base::writeAt(file->descriptor(), bytes, 0))
        return base::systemError("write", path, errno);
    return file->commit();
}

base::Result<base::OwnedBytes> IdentityFolder::readPrivate(const std::string& name) const {
    const std::string path = path_ + '/' + name;
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && (status.st_mode & forOthers) != 0)
        return openToOthers(path, "Set its permissions with chmod 600.");
    return wholeFile(path, Links::Follow);
}

} // namespace sign
