#pragma once

#include "base/Result.h"
#include "sign/crypto/OpenSsl.h"
#include "sign/signature/RequirementCheck.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sign {

/// An X.509 certificate (RFC 5280). Copies share it; it never changes. Any thread.
class Certificate {
public:
    explicit Certificate(CertificateOwner handle) : handle_(std::move(handle)) {}

    /// Of exactly these bytes. `name` is what an error names.
    [[nodiscard]] static base::Result<Certificate> fromDer(base::Bytes der, std::string_view name);
    /// All that stand in a text in PEM, in order; none if there are none.
    [[nodiscard]] static std::vector<Certificate> fromPem(base::Bytes pem);

    [[nodiscard]] X509* handle() const { return handle_.get(); }
    [[nodiscard]] base::OwnedBytes der() const;
    [[nodiscard]] Digest sha1() const { return digestOf(HashType::Sha1, der()); }
    [[nodiscard]] Digest sha256() const { return digestOf(HashType::Sha256, der()); }

    /// The last field of that short name in the subject, such as "CN"; empty without one.
    [[nodiscard]] std::string subjectField(std::string_view name) const;
    /// The common name, else the organization or its unit, else "<unknown>".
    [[nodiscard]] std::string label() const;
    /// Same, of the certificate that issued it.
    [[nodiscard]] std::string issuerLabel() const;

    /// Seconds since 1970.
    [[nodiscard]] std::int64_t notBefore() const;
    [[nodiscard]] std::int64_t notAfter() const;
    [[nodiscard]] bool isValidAt(std::int64_t seconds) const {
        return notBefore() <= seconds && seconds <= notAfter();
    }

    /// Whether it may sign code: its extended key usage says so. One without usages may not, unless
    /// `withoutUsages` is set.
    [[nodiscard]] bool signsCode(bool withoutUsages) const;
    /// Whether its key may sign more than certificates: its key usage says so, or it has none.
    [[nodiscard]] bool signsData() const;
    /// Whether its key is of one of the two kinds that sign code: plain RSA, or ECDSA.
    [[nodiscard]] bool hasKeyForCode() const;
    [[nodiscard]] bool isSelfIssued() const;
    /// Whether `issuer` has signed this certificate, and may sign certificates.
    [[nodiscard]] bool isIssuedBy(const Certificate& issuer) const;
    /// The address that it names for its issuer's certificate; empty if it names none.
    [[nodiscard]] std::string issuerAddress() const;

    /// What requirements ask about it.
    [[nodiscard]] CertificateFacts facts() const;

    bool operator==(const Certificate& other) const { return der() == other.der(); }

private:
    std::shared_ptr<X509> handle_;
};

/// What requirements ask about a chain. Any thread.
[[nodiscard]] std::vector<CertificateFacts> factsOf(const std::vector<Certificate>& chain);

} // namespace sign
