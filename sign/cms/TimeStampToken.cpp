#include "sign/cms/TimeStampToken.h"

#include "sign/cms/CertificateCut.h"
#include "sign/cms/TimeStamp.h"
#include "sign/identity/CertificateChain.h"
#include "sign/identity/TrustedRoots.h"

#include <ctime>

namespace sign {
namespace {

using VerifyContextOwner = OpenSslOwner<TS_VERIFY_CTX, TS_VERIFY_CTX_free>;

base::Error wrong(const std::string& what) {
    return {base::ErrorKind::Damaged, "The time stamp is not valid: " + what + '.'};
}

/// The hash of the bytes with the token's own algorithm; empty if it is not known.
base::OwnedBytes imprintOf(TS_TST_INFO* content, base::Bytes bytes) {
    const X509_ALGOR* algorithm = TS_MSG_IMPRINT_get_algo(TS_TST_INFO_get_msg_imprint(content));
    const ASN1_OBJECT* name = nullptr;
    X509_ALGOR_get0(&name, nullptr, nullptr, algorithm);
    const EVP_MD* hash = EVP_get_digestbyobj(name);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    if (hash == nullptr ||
        EVP_Digest(bytes.data(), bytes.size(), digest, &size, hash, nullptr) != 1)
        return {};
    return {digest, digest + size};
}

/// Trusts the roots that a token brings, as far as these may count; and the system's if asked to.
CertificateStoreOwner storeFor(PKCS7* token, TokenRoots roots, std::int64_t when,
                               bool withSystemRoots) {
    CertificateStoreOwner store(X509_STORE_new());
    if (withSystemRoots)
        X509_STORE_set_default_paths(store.get());
    for (const Certificate& certificate : certificatesOf(token))
        if (certificate.isSelfIssued() &&
            (roots == TokenRoots::Any || countsAsAppleRoot(certificate)))
            X509_STORE_add_cert(store.get(), certificate.handle());
    X509_VERIFY_PARAM* parameters = X509_STORE_get0_param(store.get());
    X509_VERIFY_PARAM_set_time(parameters, static_cast<time_t>(when));
    X509_VERIFY_PARAM_set_flags(parameters, X509_V_FLAG_IGNORE_CRITICAL);
    // Roots sign themselves with SHA-1, and Apple's server signs its answers so.
    X509_VERIFY_PARAM_set_auth_level(parameters, 0);
    return store;
}

bool isVerifiedBy(PKCS7* token, TokenRoots roots, const TS_TST_INFO* content,
                  const base::OwnedBytes& imprint, bool withSystemRoots) {
    const VerifyContextOwner context(TS_VERIFY_CTX_new());
    auto* owned = static_cast<unsigned char*>(OPENSSL_memdup(imprint.data(), imprint.size()));
    TS_VERIFY_CTX_set_imprint(context.get(), owned, static_cast<long>(imprint.size()));
    auto store = storeFor(token, roots, timeOf(content), withSystemRoots);
    TS_VERIFY_CTX_set_store(context.get(), store.release());
    constexpr unsigned flags = TS_VFY_VERSION | TS_VFY_IMPRINT | TS_VFY_SIGNATURE;
    TS_VERIFY_CTX_add_flags(context.get(), static_cast<int>(flags));
    return TS_RESP_verify_token(context.get(), token) == 1;
}

bool isVerified(PKCS7* token, TokenRoots roots, const TS_TST_INFO* content,
                const base::OwnedBytes& imprint) {
    if (isVerifiedBy(token, roots, content, imprint, false))
        return true;
    if (roots == TokenRoots::Apple)
        return false;
    // The system's roots take longer to read than all else; most tokens bring their own.
    forgetOpenSslErrors();
    return isVerifiedBy(token, roots, content, imprint, true);
}

} // namespace

TokenRoots rootsFor(const Certificate& codeRoot) {
    return countsAsAppleRoot(codeRoot) ? TokenRoots::Apple : TokenRoots::Any;
}

Pkcs7Owner decodedToken(base::Bytes token) {
    const auto cut = cutCertificates(token);
    const unsigned char* at = cut ? cut->rest.data() : nullptr;
    Pkcs7Owner decoded(cut ? d2i_PKCS7(nullptr, &at, static_cast<long>(cut->rest.size()))
                           : nullptr);
    bool isWhole = decoded && PKCS7_type_is_signed(decoded.get()) == 1;
    for (std::size_t index = 0; isWhole && index < cut->certificates.size(); ++index)
        isWhole = PKCS7_add_certificate(decoded.get(), cut->certificates[index].handle()) == 1;
    if (!isWhole) {
        forgetOpenSslErrors();
        decoded.reset();
    }
    return decoded;
}

std::int64_t timeOf(const TS_TST_INFO* content) {
    std::tm parts{};
    if (ASN1_TIME_to_tm(TS_TST_INFO_get_time(content), &parts) != 1)
        return 0;
    return static_cast<std::int64_t>(timegm(&parts));
}

std::vector<Certificate> certificatesOf(PKCS7* token) {
    std::vector<Certificate> certificates;
    const STACK_OF(X509)* stack = token->d.sign->cert;
    for (int at = 0; stack != nullptr && at < sk_X509_num(stack); ++at) {
        X509* certificate = sk_X509_value(stack, at);
        X509_up_ref(certificate);
        certificates.emplace_back(CertificateOwner(certificate));
    }
    return certificates;
}

std::string faultOfToken(PKCS7* token, base::Bytes signatureValue, const ASN1_INTEGER* nonce,
                         TokenRoots roots) {
    const TimeStampContentOwner content(PKCS7_to_TS_TST_INFO(token));
    if (!content)
        return "it holds no time: " + openSslReason();
    const base::OwnedBytes imprint = imprintOf(content.get(), signatureValue);
    if (imprint.empty())
        return "its hash is of an unknown kind";
    if (!isVerified(token, roots, content.get(), imprint)) {
        const std::string reason = openSslReason();
        if (roots != TokenRoots::Apple ||
            !isVerified(token, TokenRoots::Any, content.get(), imprint)) {
            forgetOpenSslErrors();
            return reason;
        }
        return "its certificates do not lead to a root of Apple, as those of the code do";
    }
    if (nonce != nullptr) {
        const ASN1_INTEGER* answered = TS_TST_INFO_get_nonce(content.get());
        if (answered == nullptr || ASN1_INTEGER_cmp(answered, nonce) != 0)
            return "its nonce is not the one that was sent";
    }
    return {};
}

std::optional<std::int64_t> timeOfToken(base::Bytes token) {
    const Pkcs7Owner decoded = decodedToken(token);
    if (!decoded)
        return std::nullopt;
    const TimeStampContentOwner content(PKCS7_to_TS_TST_INFO(decoded.get()));
    if (!content) {
        forgetOpenSslErrors();
        return std::nullopt;
    }
    return timeOf(content.get());
}

base::Result<std::int64_t> checkToken(base::Bytes token, base::Bytes signatureValue,
                                      const Certificate& codeRoot) {
    const Pkcs7Owner decoded = decodedToken(token);
    if (!decoded)
        return wrong("it is malformed");
    if (const std::string fault =
            faultOfToken(decoded.get(), signatureValue, nullptr, rootsFor(codeRoot));
        !fault.empty())
        return wrong(fault);
    const TimeStampContentOwner content(PKCS7_to_TS_TST_INFO(decoded.get()));
    return timeOf(content.get());
}

} // namespace sign
