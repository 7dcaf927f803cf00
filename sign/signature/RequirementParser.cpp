#include "base/Number.h"
#include "base/Utf8.h"
#include "sign/signature/ObjectIdentifier.h"
#include "sign/signature/RequirementDate.h"
#include "sign/signature/RequirementLexer.h"
#include "sign/signature/RequirementText.h"
#include "sign/signature/RequirementWords.h"

#include <algorithm>
#include <limits>
#include <string>
#include <tuple>

namespace sign {
namespace {

using Op = Requirement::Op;

/// Some editors put a mark in front, which has no meaning in UTF-8.
std::string_view withoutMark(std::string_view text) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    return text.starts_with(mark) ? text.substr(mark.size()) : text;
}

/// So much of a text that one finds the place.
std::string_view startOf(std::string_view text) {
    constexpr std::size_t most = 20;
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    std::size_t size = std::min({most, text.find_first_of("\n\r"), text.size()});
    while (size > 0 && size < text.size() && base::isContinuation(text[size]))
        --size;
    return text.substr(0, size);
}

/// Reads expressions. After something that is not understood every further step gives up at once.
class Parser {
public:
    explicit Parser(std::string_view text) : lexer_(withoutMark(text)) { advance(); }

    [[nodiscard]] bool failed() const { return !failure_.empty(); }
    [[nodiscard]] bool atEnd() const {
        return token_.kind == RequirementToken::Kind::End && !failed();
    }
    [[nodiscard]] base::Error error() const {
        if (isTooLong_)
            return {base::ErrorKind::Usage,
                    "The code requirement has more than 400 terms and operators. Make it "
                    "shorter."};
        return {base::ErrorKind::Usage,
                "The code requirement is not understood at " + failure_ +
                    ". Write it as Apple's code requirement language asks."};
    }

    Requirement takeExpression() {
        expressions_ = 0;
        return takeAnyOf();
    }

    /// The kind before "=>".
    RequirementKind takeKind() {
        for (std::uint32_t number = 1; number <= 5; ++number) {
            const auto kind = static_cast<RequirementKind>(number);
            if (accept(requirementKindName(kind))) {
                expect("=>");
                return kind;
            }
        }
        fail();
        return {};
    }

    [[nodiscard]] bool atKind() const {
        for (std::uint32_t number = 1; number <= 5; ++number)
            if (isNow(requirementKindName(static_cast<RequirementKind>(number))))
                return true;
        return false;
    }

    void fail() {
        if (token_.kind == RequirementToken::Kind::End)
            failure_ = failed() ? failure_ : "its end";
        else
            failAt(token_.text);
    }

private:
    void failAt(std::string_view text) {
        if (!failed())
            failure_ = '"' + std::string(text) + '"';
    }

    void advance() {
        const std::string_view rest = lexer_.rest();
        auto next = lexer_.next();
        if (!next)
            failAt(startOf(rest));
        token_ = next ? *std::move(next) : RequirementToken{};
    }

    [[nodiscard]] bool isNow(std::string_view text) const {
        return (token_.kind == RequirementToken::Kind::Word ||
                token_.kind == RequirementToken::Kind::Sign) &&
               token_.text == text;
    }

    bool accept(std::string_view text) {
        if (failed() || !isNow(text))
            return false;
        advance();
        return true;
    }

    void expect(std::string_view text) {
        if (!accept(text))
            fail();
    }

    std::string takeValue() {
        const bool isValue = token_.kind == RequirementToken::Kind::Quoted ||
                             token_.kind == RequirementToken::Kind::Bytes ||
                             token_.kind == RequirementToken::Kind::Word;
        if (!isValue || failed()) {
            fail();
            return {};
        }
        std::string value = std::move(token_.text);
        advance();
        return value;
    }

    std::string takeHash() {
        if (token_.kind != RequirementToken::Kind::Hash) {
            fail();
            return {};
        }
        std::string bytes = std::move(token_.text);
        advance();
        return bytes;
    }

    template <typename Integer>
    Integer takeNumber() {
        const std::string sign = accept("-") ? "-" : "";
        using Limits = std::numeric_limits<Integer>;
        const auto number =
            base::numberIn<Integer>(sign + token_.text, Limits::min(), Limits::max());
        if (token_.kind != RequirementToken::Kind::Word || !number) {
            fail();
            return 0;
        }
        advance();
        return *number;
    }

    /// Seconds since 2001, written as such or as a quoted date.
    std::int64_t takeDate() {
        if (token_.kind != RequirementToken::Kind::Quoted)
            return takeNumber<std::int64_t>();
        const auto seconds = secondsOfDate(token_.text);
        if (seconds)
            advance();
        else
            fail();
        return seconds.value_or(0);
    }

    /// Of an expression, or a parenthesis, which costs a level here alone.
    bool countOne(int& count) {
        if (!failed() && ++count > mostExpressions) {
            isTooLong_ = true;
            fail();
        }
        return !failed();
    }

    Requirement takeAnyOf() {
        std::vector<Requirement> parts;
        do
            parts.push_back(takeAllOf());
        while (accept("or") && countOne(expressions_));
        return anyOf(std::move(parts));
    }

    Requirement takeAllOf() {
        std::vector<Requirement> parts;
        do
            parts.push_back(takePrimary());
        while (accept("and") && countOne(expressions_));
        return allOf(std::move(parts));
    }

    Requirement takePrimary() {
        if (accept("(")) {
            if (!countOne(parentheses_))
                return {};
            if (atName())
                return takeNamedCode();
            Requirement inner = takeAnyOf();
            --parentheses_;
            expect(")");
            return inner;
        }
        if (!countOne(expressions_))
            return {};
        if (accept("!")) {
            Requirement negated{.op = Op::Not};
            negated.operands.push_back(takePrimary());
            return negated;
        }
        if (accept("anchor"))
            return takeAnchor();
        if (accept("certificate") || accept("cert"))
            return takeCertificate(takeSlot());
        return takeSimple();
    }

    /// Whether a text that names something is next.
    [[nodiscard]] bool atName() const {
        return token_.kind == RequirementToken::Kind::Quoted ||
               token_.kind == RequirementToken::Kind::Bytes ||
               (token_.kind == RequirementToken::Kind::Word && !isRequirementKeyword(token_.text));
    }

    /// Behind its parenthesis.
    Requirement takeNamedCode() {
        --parentheses_;
        if (!countOne(expressions_))
            return {};
        Requirement named{.op = Op::NamedCode, .text = takeValue()};
        if (!accept(")"))
            failAt(named.text);
        return named;
    }

    Requirement takeSimple() {
        if (accept("always") || accept("true"))
            return {.op = Op::Always};
        if (accept("never") || accept("false"))
            return {.op = Op::Never};
        if (accept("notarized"))
            return {.op = Op::Notarized};
        if (accept("legacy"))
            return {.op = Op::Legacy};
        if (accept("identifier")) {
            accept("=");
            return {.op = Op::Identifier, .text = takeValue()};
        }
        if (accept("cdhash"))
            return {.op = Op::CodeDirectoryHash, .text = takeHash()};
        if (accept("platform")) {
            expect("=");
            return {.op = Op::Platform, .slot = takeNumber<std::int32_t>()};
        }
        for (const Op op : {Op::Info, Op::Entitlement}) {
            if (!accept(op == Op::Info ? "info" : "entitlement"))
                continue;
            Requirement requirement{.op = op, .text = takeKey()};
            requirement.match = takeMatch();
            return requirement;
        }
        fail();
        return {};
    }

    Requirement takeAnchor() {
        if (accept("trusted"))
            return {.op = Op::AnchorTrusted};
        if (!accept("apple"))
            return takeCertificate(-1);
        if (accept("generic"))
            return {.op = Op::AnchorAppleGeneric};
        if (atName())
            return {.op = Op::NamedAnchor, .text = takeValue()};
        return {.op = Op::AnchorApple};
    }

    CertificateSlot takeSlot() {
        if (accept("leaf"))
            return 0;
        if (accept("root") || accept("anchor"))
            return -1;
        return takeNumber<std::int32_t>();
    }

    Requirement takeCertificate(CertificateSlot slot) {
        if (accept("trusted"))
            return {.op = Op::CertificateTrusted, .slot = slot};
        if (accept("="))
            return {.op = Op::CertificateHash, .slot = slot, .text = takeHash()};
        Requirement requirement{.op = Op::CertificateField, .slot = slot, .text = takeKey()};
        for (const auto& [prefix, op] : {std::pair("field.", Op::CertificateExtension),
                                         std::pair("policy.", Op::CertificatePolicy),
                                         std::pair("timestamp.", Op::CertificateTimestamp)}) {
            if (!requirement.text.starts_with(prefix))
                continue;
            requirement.op = op;
            requirement.text.erase(0, std::string_view(prefix).size());
            if (encodedOid(requirement.text).empty())
                failAt(prefix + requirement.text);
        }
        requirement.match = takeMatch();
        return requirement;
    }

    std::string takeKey() {
        expect("[");
        std::string key = takeValue();
        while (!failed() && !isNow("]"))
            key += takeValue();
        expect("]");
        return key;
    }

    Match takeMatch() {
        using Kind = Match::Kind;
        if (accept("exists"))
            return {};
        if (accept("absent"))
            return {.kind = Kind::Absent};
        for (const auto& [sign, kind, dateKind] :
             {std::tuple("=", Kind::Equal, Kind::On), std::tuple("<", Kind::Less, Kind::Before),
              std::tuple(">", Kind::Greater, Kind::After),
              std::tuple("<=", Kind::LessOrEqual, Kind::OnOrBefore),
              std::tuple(">=", Kind::GreaterOrEqual, Kind::OnOrAfter)}) {
            if (!accept(sign))
                continue;
            if (accept("timestamp"))
                return {.kind = dateKind, .seconds = takeDate()};
            return kind == Kind::Equal ? takePattern() : Match{.kind = kind, .text = takeValue()};
        }
        if (accept("~"))
            return {.kind = Kind::Contains, .text = takeValue()};
        return {};
    }

    /// A text behind "=", whose stars stand for any other.
    Match takePattern() {
        using Kind = Match::Kind;
        const bool starsBefore = accept("*");
        Match match{.kind = Kind::Equal, .text = takeValue()};
        const bool starsBehind = accept("*");
        if (starsBefore)
            match.kind = starsBehind ? Kind::Contains : Kind::EndsWith;
        else if (starsBehind)
            match.kind = Kind::BeginsWith;
        return match;
    }

    RequirementLexer lexer_;
    RequirementToken token_;
    std::string failure_;
    bool isTooLong_ = false;
    int expressions_ = 0;
    int parentheses_ = 0; ///< that are open
};

} // namespace

base::Result<Requirement> parsedRequirement(std::string_view text) {
    Parser parser(text);
    Requirement requirement = parser.takeExpression();
    if (!parser.atEnd())
        parser.fail();
    if (parser.failed())
        return parser.error();
    return requirement;
}

base::Result<RequirementSet> parsedRequirementSet(std::string_view text) {
    Parser parser(text);
    RequirementSet set;
    do {
        const RequirementKind kind = parser.takeKind();
        Requirement requirement = parser.takeExpression();
        set.insert_or_assign(kind, std::move(requirement));
    } while (parser.atKind() && !parser.failed());
    if (!parser.atEnd())
        parser.fail();
    if (parser.failed())
        return parser.error();
    return set;
}

} // namespace sign
