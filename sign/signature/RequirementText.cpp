#include "sign/signature/RequirementText.h"

#include "base/ByteReader.h"
#include "sign/signature/RequirementWords.h"

#include <algorithm>
#include <array>

namespace sign {
namespace {

using Op = Requirement::Op;

bool isLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isSimple(std::string_view text, bool dotsToo) {
    return !text.empty() && isLetter(text[0]) && !isRequirementKeyword(text) &&
           std::ranges::all_of(
               text, [&](char c) { return isLetter(c) || isDigit(c) || (dotsToo && c == '.'); });
}

bool isPrintable(std::string_view text) {
    return std::ranges::all_of(
        text, [](char c) { return (c >= ' ' && c <= '~') || (c >= '\t' && c <= '\r'); });
}

/// A value as the language writes it: bare, quoted, or as the digits of its bytes.
std::string word(std::string_view text, bool dotsToo = false) {
    if (isSimple(text, dotsToo))
        return std::string(text);
    if (!isPrintable(text))
        return "0x" + base::hex(base::bytesOf(text));
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

std::string hashWord(std::string_view bytes) {
    return "H\"" + base::hex(base::bytesOf(bytes)) + '"';
}

std::string position(CertificateSlot slot) {
    return slot == 0 ? "leaf" : slot == -1 ? "root" : std::to_string(slot);
}

std::string matchText(const Match& match) {
    using Kind = Match::Kind;
    constexpr std::array signs = {"",     " = ",  " ~ ", " = ", " = *", " < ",  " > ",
                                  " <= ", " >= ", " = ", " < ", " > ",  " <= ", " >= "};
    if (match.kind == Kind::Exists)
        return " /* exists */";
    if (match.kind == Kind::Absent)
        return " absent ";
    const std::string sign = signs.at(static_cast<std::size_t>(match.kind));
    if (match.kind >= Kind::On)
        return sign + "timestamp " + std::to_string(match.seconds);
    return sign + word(match.text) + (match.kind == Kind::BeginsWith ? "*" : "");
}

/// How tightly what stands around an expression binds.
enum class Binding { Tightest, And, Loosest };

std::string textOf(const Requirement& requirement, Binding around);

std::string joinedText(const Requirement& requirement, const char* between, Binding own,
                       Binding around) {
    const std::string text =
        textOf(requirement.operands.at(0), own) + between + textOf(requirement.operands.at(1), own);
    return around < own ? '(' + text + ')' : text;
}

std::string certificateText(const Requirement& requirement) {
    const std::string start = "certificate " + position(requirement.slot);
    const auto bracketed = [&](const std::string& key) {
        return start + '[' + key + ']' + matchText(requirement.match);
    };
    switch (requirement.op) {
    case Op::CertificateHash:
        return start + " = " + hashWord(requirement.text);
    case Op::CertificateTrusted:
        return start + " trusted";
    case Op::CertificateField:
        return bracketed(word(requirement.text, true));
    case Op::CertificateExtension:
        return bracketed("field." + requirement.text);
    case Op::CertificatePolicy:
        return bracketed("policy." + requirement.text);
    default:
        return bracketed("timestamp." + requirement.text);
    }
}

std::string textOf(const Requirement& requirement, Binding around) {
    switch (requirement.op) {
    case Op::Never:
        return "never";
    case Op::Always:
        return "always";
    case Op::Identifier:
        return "identifier " + word(requirement.text);
    case Op::AnchorApple:
        return "anchor apple";
    case Op::AnchorAppleGeneric:
        return "anchor apple generic";
    case Op::AnchorTrusted:
        return "anchor trusted";
    case Op::NamedAnchor:
        return "anchor apple " + word(requirement.text);
    case Op::NamedCode:
        return '(' + word(requirement.text) + ')';
    case Op::InfoEquals:
    case Op::Info:
        return "info[" + word(requirement.text, true) + ']' + matchText(requirement.match);
    case Op::Entitlement:
        return "entitlement[" + word(requirement.text, true) + ']' + matchText(requirement.match);
    case Op::And:
        return joinedText(requirement, " and ", Binding::And, around);
    case Op::Or:
        return joinedText(requirement, " or ", Binding::Loosest, around);
    case Op::Not:
        return "! " + textOf(requirement.operands.at(0), Binding::Tightest);
    case Op::CodeDirectoryHash:
        return "cdhash " + hashWord(requirement.text);
    case Op::Platform:
        return "platform = " + std::to_string(requirement.slot);
    case Op::Notarized:
        return "notarized";
    case Op::Legacy:
        return "legacy";
    default:
        return certificateText(requirement);
    }
}

} // namespace

bool isRequirementKeyword(std::string_view word) {
    constexpr std::array<std::string_view, 29> keywords = {
        "guest",   "host",        "designated", "library", "plugin",   "or",
        "and",     "always",      "true",       "never",   "false",    "identifier",
        "cdhash",  "platform",    "notarized",  "legacy",  "anchor",   "apple",
        "generic", "certificate", "cert",       "trusted", "info",     "entitlement",
        "exists",  "absent",      "leaf",       "root",    "timestamp"};
    return std::ranges::find(keywords, word) != keywords.end();
}

std::string requirementText(const Requirement& requirement) {
    return textOf(requirement, Binding::Loosest);
}

std::string_view requirementKindName(RequirementKind kind) {
    constexpr std::array<std::string_view, 6> names = {"",           "host",    "guest",
                                                       "designated", "library", "plugin"};
    const auto number = static_cast<std::size_t>(kind);
    return number < names.size() ? names[number] : "unknown";
}

} // namespace sign
