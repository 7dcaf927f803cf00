#include "sign/identity/IdentityImport.h"

#include "sign/identity/CertificateChain.h"
#include "sign/identity/CertificateFile.h"
#include "sign/identity/IdentityList.h"
#include "sign/identity/KeyFile.h"

#include <algorithm>

#include <openssl/http.h>

namespace sign {
namespace {

constexpr int secondsToAnswer = 15;
constexpr std::size_t longestCertificate = std::size_t{1} << 20U;
constexpr int mostDownloads = 8;

base::Result<Certificate> downloaded(const std::string& address) {
    const BioOwner answer(OSSL_HTTP_get(address.c_str(), nullptr, nullptr, nullptr, nullptr,
                                        nullptr, nullptr, 0, nullptr, nullptr, 1,
                                        longestCertificate, secondsToAnswer));
    if (!answer) {
        forgetOpenSslErrors();
        return base::Error{
            base::ErrorKind::Unavailable,
            "The certificate at " + address +
                " could not be downloaded. Download it by other means and give it with "
                "--chain."};
    }
    CertificateOwner certificate(d2i_X509_bio(answer.get(), nullptr));
    if (certificate)
        return Certificate(std::move(certificate));
    forgetOpenSslErrors();
    return base::Error{base::ErrorKind::Damaged, "What is at " + address +
                                                     " is no certificate. Give the issuer's "
                                                     "certificate with --chain."};
}

/// The certificate that belongs to the key in the files, or else to one in the folder.
base::Result<Certificate> leafAmong(const IdentityFolder& folder,
                                    const std::vector<Certificate>& certificates, EVP_PKEY* key,
                                    const std::string& file) {
    const std::string keyId = key != nullptr ? keyIdOf(key) : std::string();
    for (const Certificate& certificate : certificates) {
        const std::string id = keyIdOf(certificate);
        if (key != nullptr ? id == keyId : folder.hasKey(id))
            return certificate;
    }
    if (certificates.empty())
        return base::Error{base::ErrorKind::NotFound,
                           file +
                               " holds no certificate. Give the file that holds it, and this one "
                               "with --key."};
    if (key == nullptr)
        return base::Error{base::ErrorKind::NotFound,
                           "The key of \"" + certificates.front().label() + "\" is not in " + file +
                               " and was not made here. Export the identity with its key."};
    return base::Error{base::ErrorKind::Conflict,
                       "The key in " + file +
                           " belongs to none of its certificates. Export the "
                           "identity again."};
}

} // namespace

base::Outcome checkLeaf(const Certificate& leaf) {
    const IdentityFault fault = faultOf(leaf, false);
    if (fault == IdentityFault::None)
        return {};
    const char* what = fault == IdentityFault::WrongKey
                           ? "\" has a key that is neither plain RSA nor ECDSA. Give one with such "
                             "a key."
                           : "\" is not for code signing. Give one that is.";
    return base::Error{base::ErrorKind::Unsupported, "The certificate \"" + leaf.label() + what};
}

base::Result<std::vector<Certificate>> chainFor(const Certificate& leaf,
                                                std::vector<Certificate> known, bool mayDownload) {
    for (int download = 0; mayDownload && download < mostDownloads; ++download) {
        const std::vector<Certificate> chain = chainAsFarAsKnown(leaf, known);
        const std::string address = chain.back().issuerAddress();
        if (chain.back().isSelfIssued() || !address.starts_with("http://"))
            break;
        auto issuer = downloaded(address);
        if (!issuer)
            return issuer.error();
        known.push_back(*std::move(issuer));
    }
    return completeChain(leaf, known);
}

base::Result<FoundIdentity> findInFiles(const IdentityFolder& folder, const ImportOptions& options,
                                        const Secret& passphrase) {
    auto file = readIdentityFile(options.file, passphrase);
    if (!file)
        return file.error();
    KeyOwner key = std::move(file->key);
    if (!options.keyFile.empty()) {
        auto other = readIdentityFile(options.keyFile, passphrase);
        if (!other)
            return other.error();
        if (other->key)
            key = std::move(other->key);
    }
    auto leaf = leafAmong(folder, file->certificates, key.get(), options.file);
    if (!leaf)
        return leaf.error();
    if (auto fit = checkLeaf(*leaf); !fit)
        return fit.error();
    std::vector<Certificate> known = std::move(file->certificates);
    if (!options.chainFile.empty()) {
        auto more = readCertificates(options.chainFile);
        if (!more)
            return more.error();
        known.insert(known.end(), more->begin(), more->end());
    }
    for (Certificate& certificate : folder.pool())
        known.push_back(std::move(certificate));
    auto chain = chainFor(*leaf, std::move(known), options.mayDownload);
    if (!chain)
        return chain.error();
    return FoundIdentity{*std::move(chain), std::move(key)};
}

} // namespace sign
