#include "sign/signature/RequirementCheck.h"

#include "base/ByteReader.h"

#include <algorithm>
#include <compare>

namespace sign {
namespace {

using Op = Requirement::Op;

/// Marks code that Apple itself has signed.
constexpr std::string_view appleSoftwareSigning = "1.2.840.113635.100.6.22";

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view takeDigits(std::string_view& text) {
    const std::size_t size =
        std::min(static_cast<std::size_t>(std::ranges::find_if_not(text, isDigit) - text.begin()),
                 text.size());
    std::string_view digits = text.substr(0, size);
    text.remove_prefix(size);
    digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
    return digits;
}

/// Compares runs of digits by the numbers that they stand for.
std::strong_ordering compareWithNumbers(std::string_view left, std::string_view right) {
    while (!left.empty() && !right.empty()) {
        if (isDigit(left[0]) && isDigit(right[0])) {
            const std::string_view a = takeDigits(left);
            const std::string_view b = takeDigits(right);
            const auto order = a.size() != b.size() ? a.size() <=> b.size() : a <=> b;
            if (order != 0)
                return order;
            continue;
        }
        if (left[0] != right[0])
            return static_cast<unsigned char>(left[0]) <=> static_cast<unsigned char>(right[0]);
        left.remove_prefix(1);
        right.remove_prefix(1);
    }
    return left.size() <=> right.size();
}

bool matchesText(const Match& match, std::string_view value) {
    using Kind = Match::Kind;
    switch (match.kind) {
    case Kind::Exists:
        return true;
    case Kind::Equal:
        return value == match.text;
    case Kind::Contains:
        return value.find(match.text) != std::string_view::npos;
    case Kind::BeginsWith:
        return value.starts_with(match.text);
    case Kind::EndsWith:
        return value.ends_with(match.text);
    case Kind::Less:
        return compareWithNumbers(value, match.text) < 0;
    case Kind::Greater:
        return compareWithNumbers(value, match.text) > 0;
    case Kind::LessOrEqual:
        return compareWithNumbers(value, match.text) <= 0;
    case Kind::GreaterOrEqual:
        return compareWithNumbers(value, match.text) >= 0;
    default:
        return false;
    }
}

bool matches(const Match& match, const PropertyValue* value) {
    if (value == nullptr)
        return match.kind == Match::Kind::Absent;
    if (const PropertyArray* array = value->array())
        return std::ranges::any_of(
            *array, [&](const PropertyValue& element) { return matches(match, &element); });
    if (match.kind == Match::Kind::Exists)
        return value->boolean() == nullptr || *value->boolean();
    return value->string() != nullptr && matchesText(match, *value->string());
}

/// For values that have no text to compare.
bool matchesPresence(const Match& match, bool isPresent) {
    return match.kind == (isPresent ? Match::Kind::Exists : Match::Kind::Absent);
}

bool fieldMatches(const CertificateFacts& certificate, const Requirement& requirement) {
    constexpr std::string_view subject = "subject.";
    if (requirement.text == "email")
        return !certificate.email.empty() && matchesText(requirement.match, certificate.email);
    if (!requirement.text.starts_with(subject))
        return false;
    const auto field =
        certificate.subject.find(std::string_view(requirement.text).substr(subject.size()));
    return field != certificate.subject.end() && matchesText(requirement.match, field->second);
}

const CertificateFacts* certificateAt(const CodeFacts& code, CertificateSlot slot) {
    const auto size = static_cast<std::ptrdiff_t>(code.chain.size());
    const std::ptrdiff_t index = slot >= 0 ? slot : size + slot;
    return index >= 0 && index < size ? &code.chain[static_cast<std::size_t>(index)] : nullptr;
}

bool certificateMeets(const CertificateFacts* certificate, const Requirement& requirement) {
    if (certificate == nullptr)
        return false;
    switch (requirement.op) {
    case Op::CertificateHash:
        return base::textOf(certificate->sha1.bytes()) == requirement.text;
    case Op::CertificateField:
        return fieldMatches(*certificate, requirement);
    case Op::CertificateExtension:
        return matchesPresence(requirement.match,
                               certificate->extensions.contains(requirement.text));
    case Op::CertificatePolicy:
        return matchesPresence(requirement.match, certificate->policies.contains(requirement.text));
    default:
        return false;
    }
}

bool isUnderAppleRoot(const CodeFacts& code) {
    return !code.chain.empty() && code.chain.back().isAppleRoot;
}

bool isSignedByApple(const CodeFacts& code) {
    return isUnderAppleRoot(code) && code.chain.front().extensions.contains(appleSoftwareSigning);
}

} // namespace

bool meets(const CodeFacts& code, const Requirement& requirement) {
    const auto operand = [&](std::size_t index) {
        return meets(code, requirement.operands.at(index));
    };
    switch (requirement.op) {
    case Op::Always:
        return true;
    case Op::And:
        return operand(0) && operand(1);
    case Op::Or:
        return operand(0) || operand(1);
    case Op::Not:
        return !operand(0);
    case Op::Identifier:
        return code.identifier == requirement.text;
    case Op::CodeDirectoryHash:
        return std::ranges::any_of(code.codeDirectoryHashes, [&](const Digest& hash) {
            return base::textOf(hash.bytes()) == requirement.text;
        });
    case Op::AnchorAppleGeneric:
        return isUnderAppleRoot(code);
    case Op::AnchorApple:
        return isSignedByApple(code);
    case Op::Info:
    case Op::InfoEquals:
        return matches(requirement.match, code.info.find(requirement.text));
    case Op::Entitlement:
        return matches(requirement.match, code.entitlements.find(requirement.text));
    case Op::Platform:
        return code.platform == requirement.slot;
    default:
        return certificateMeets(certificateAt(code, requirement.slot), requirement);
    }
}

} // namespace sign
