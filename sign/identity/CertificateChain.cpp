#include "sign/identity/CertificateChain.h"

#include <algorithm>

namespace sign {
namespace {

constexpr std::size_t longest = 8;

bool isRoot(const Certificate& certificate) {
    return certificate.isSelfIssued();
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
    if (!isRoot(last)) {
        const std::string address = last.issuerAddress();
        return base::Error{base::ErrorKind::NotFound,
                           "The certificate \"" + last.issuerLabel() + "\", which issued \"" +
                               last.label() + "\", is missing. Download it " +
                               (address.empty() ? "from https://www.apple.com/certificateauthority/"
                                                : "from " + address) +
                               " and give it with --chain."};
    }
    if (!last.isIssuedBy(last))
        return base::Error{base::ErrorKind::Damaged,
                           "The root certificate \"" + last.label() +
                               "\" is not signed by itself. Export the identity again."};
    return chain;
}

} // namespace sign
