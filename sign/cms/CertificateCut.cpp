#include "sign/cms/CertificateCut.h"

#include "base/ByteReader.h"
#include "sign/cms/BerElements.h"

#include <mutex>
#include <string>
#include <unordered_map>

namespace sign {
namespace {

/// A certificate that is decoded once, however often it comes.
base::Result<Certificate> sharedCertificate(base::Bytes der) {
    constexpr std::size_t most = 256;
    static std::mutex mutex;
    static std::unordered_map<std::string, Certificate> known;
    const std::string key(base::textOf(der));
    {
        const std::lock_guard lock(mutex);
        if (const auto found = known.find(key); found != known.end())
            return found->second;
    }
    auto decoded = Certificate::fromDer(der, "A part of the signature");
    if (!decoded)
        return decoded;
    const std::lock_guard lock(mutex);
    if (known.size() >= most)
        known.clear();
    return known.try_emplace(key, std::move(*decoded)).first->second;
}

/// CertificateSet: what is no SEQUENCE is a certificate of another kind, which nothing here uses.
bool takeCertificates(const BerElement& set, std::vector<Certificate>& to) {
    const auto choices = elementsIn(set.content);
    if (!choices)
        return false;
    for (const BerElement& choice : *choices) {
        if (!choice.isSequence())
            continue;
        auto certificate = sharedCertificate(choice.whole);
        if (!certificate)
            return false;
        to.push_back(std::move(*certificate));
    }
    return true;
}

void append(base::OwnedBytes& to, base::Bytes bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

} // namespace

std::optional<CutMessage> cutCertificates(base::Bytes message) {
    constexpr std::array<std::uint8_t, 2> openSequence = {0x30, 0x80};
    constexpr std::array<std::uint8_t, 4> openContent = {0xA0, 0x80, 0x30, 0x80};
    constexpr std::array<std::uint8_t, 6> ends{};
    constexpr std::size_t certificatesAt = 3;

    const auto whole = firstElementIn(message);
    const auto parts = whole && whole->isSequence() ? elementsIn(whole->content) : std::nullopt;
    if (!parts || parts->size() != 2 || !parts->back().isContext(0))
        return std::nullopt;
    const auto inner = firstElementIn(parts->back().content);
    const auto members = inner && inner->isSequence() ? elementsIn(inner->content) : std::nullopt;
    if (!members)
        return std::nullopt;

    CutMessage cut;
    append(cut.rest, openSequence);
    append(cut.rest, parts->front().whole);
    append(cut.rest, openContent);
    for (std::size_t at = 0; at < members->size(); ++at) {
        const BerElement& member = (*members)[at];
        if (at != certificatesAt || !member.isContext(0))
            append(cut.rest, member.whole);
        else if (!takeCertificates(member, cut.certificates))
            return std::nullopt;
    }
    append(cut.rest, ends);
    return cut;
}

} // namespace sign
