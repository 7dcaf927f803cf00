#include "sign/identity/CertificateChain.h"

#include <algorithm>

namespace sign {
namespace {

constexpr std::size_t longest = 8;

bool isRoot(const Certificate& certificate) {
    return certificate.isSelfIssued();
}

/// One of them may have the issuer's name, yet not be it.
base::Error noIssuer(const Certificate& issued, std::span<const Certificate> others) {
    const bool isNamed = std::ranges::any_of(others, [&](const Certificate& other) {
        return X509_NAME_cmp(X509_get_subject_name(other.handle()),
                             X509_get_issuer_name(issued.handle())) == 0;
    });
    const std::string address = issued.issuerAddress();
    std::string sentence = "The certificate \"" + issued.issuerLabel() + '"';
    sentence += isNamed ? " that is given has not issued \"" + issued.label() +
                              "\", or may issue none. Download the right one "
                        : ", which issued \"" + issued.label() + "\", is missing. Download it ";
    sentence +=
        "from " + (address.empty() ? "https://www.apple.com/certificateauthority/" : address);
    return {base::ErrorKind::NotFound, sentence + " and give it with --chain."};
}

} // namespace

std::vector<Certificate> chainAsFarAsKnown(const Certificate& leaf,
                                           std::span<const Certificate> others) {
    std::vector<Certificate> chain = {leaf};
    while (!isRoot(chain.back()) && chain.size() < longest) {
        const auto issuer = std::ranges::find_if(
            others, [&](const Certificate& other) { return chain.back().isIssuedBy(other); });
        if (issuer == others.end())
            break;
        chain.push_back(*issuer);
    }
    return chain;
}

base::Result<std::vector<Certificate>> completeChain(const Certificate& leaf,
                                                     std::span<const Certificate> others) {
    std::vector<Certificate> chain = chainAsFarAsKnown(leaf, others);
    const Certificate& last = chain.back();
    if (!isRoot(last))
        return noIssuer(last, others);
    if (!last.isIssuedBy(last))
        return base::Error{base::ErrorKind::Damaged,
                           "The root certificate \"" + last.label() +
                               "\" is not signed by itself. Export the identity again."};
    return chain;
}

} // namespace sign
