#pragma once

#include "sign/plist/PropertyList.h"
#include "sign/signature/Requirement.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace sign {

/// What requirements ask about one certificate.
struct CertificateFacts {
    Digest sha1{};
    /// By the short name of the field, such as "CN" and "OU"; the last value of each.
    std::map<std::string, std::string, std::less<>> subject{};
    std::string email{};
    std::set<std::string, std::less<>> extensions{}; ///< dotted object identifiers
    std::set<std::string, std::less<>> policies{};   ///< same
    bool isAppleRoot = false;
};

/// What requirements ask about one architecture of one code object.
struct CodeFacts {
    std::string identifier{};
    std::vector<Digest> codeDirectoryHashes{}; ///< each of 20 bytes
    std::vector<CertificateFacts> chain{};     ///< the leaf first, the root last; empty if ad hoc
    PropertyValue info{};                      ///< of Info.plist; an empty dictionary without one
    PropertyValue entitlements{};              ///< same
    std::uint8_t platform = 0;
};

/// Whether the code meets the requirement. What only a system's trust settings or tickets could
/// tell is taken for not met. Any thread.
[[nodiscard]] bool meets(const CodeFacts& code, const Requirement& requirement);

} // namespace sign
