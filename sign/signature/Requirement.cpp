#include "sign/signature/Requirement.h"

#include "base/ByteReader.h"
#include "base/ByteWriter.h"
#include "sign/signature/ObjectIdentifier.h"

namespace sign {
namespace {

using Op = Requirement::Op;

constexpr std::uint32_t requirementMagic = 0xFADE0C00;
constexpr std::uint32_t requirementSetMagic = 0xFADE0C01;
constexpr std::uint32_t expressionForm = 1;

// The upper byte of an operation that a reader does not know tells how to go on without it.
constexpr std::uint32_t flagsOfOp = 0xFF000000;
constexpr std::uint32_t unknownMeansFalse = 0x80000000;
constexpr std::uint32_t unknownIsSkipped = 0x40000000;

void putData(base::ByteBuffer& to, std::string_view data) {
    base::appendBig(to, static_cast<std::uint32_t>(data.size()));
    base::appendText(to, data);
    base::appendText(to, std::string(-data.size() % 4, '\0'));
}

bool isDate(Match::Kind kind) {
    return kind >= Match::Kind::On && kind <= Match::Kind::OnOrAfter;
}

void putMatch(base::ByteBuffer& to, const Match& match) {
    base::appendBig(to, static_cast<std::uint32_t>(match.kind));
    if (isDate(match.kind))
        base::appendBig(to, static_cast<std::uint64_t>(match.seconds));
    else if (match.kind != Match::Kind::Exists && match.kind != Match::Kind::Absent)
        putData(to, match.text);
}

/// What follows an operation, in this order.
struct Operands {
    bool slot = false;
    bool text = false;
    bool oid = false;
    bool match = false;
    int expressions = 0;
};

std::optional<Operands> operandsOf(Op op) {
    switch (op) {
    case Op::Never:
    case Op::Always:
    case Op::AnchorApple:
    case Op::AnchorTrusted:
    case Op::AnchorAppleGeneric:
    case Op::Notarized:
    case Op::Legacy:
        return Operands{};
    case Op::Identifier:
    case Op::CodeDirectoryHash:
    case Op::NamedAnchor:
    case Op::NamedCode:
        return Operands{.text = true};
    case Op::CertificateHash:
        return Operands{.slot = true, .text = true};
    case Op::InfoEquals:
    case Op::Info:
    case Op::Entitlement:
        return Operands{.text = true, .match = true};
    case Op::And:
    case Op::Or:
        return Operands{.expressions = 2};
    case Op::Not:
        return Operands{.expressions = 1};
    case Op::CertificateField:
        return Operands{.slot = true, .text = true, .match = true};
    case Op::CertificateTrusted:
    case Op::Platform:
        return Operands{.slot = true};
    case Op::CertificateExtension:
    case Op::CertificatePolicy:
    case Op::CertificateTimestamp:
        return Operands{.slot = true, .text = true, .oid = true, .match = true};
    }
    return std::nullopt;
}

void putExpression(base::ByteBuffer& to, const Requirement& requirement) {
    const Operands operands = operandsOf(requirement.op).value_or(Operands{});
    base::appendBig(to, static_cast<std::uint32_t>(requirement.op));
    if (operands.slot)
        base::appendBig(to, static_cast<std::uint32_t>(requirement.slot));
    if (operands.text)
        putData(to, operands.oid ? encodedOid(requirement.text) : requirement.text);
    if (requirement.op == Op::InfoEquals)
        putData(to, requirement.match.text);
    else if (operands.match)
        putMatch(to, requirement.match);
    for (const Requirement& operand : requirement.operands)
        putExpression(to, operand);
}

base::Error damaged() {
    return {base::ErrorKind::Damaged, "The code requirement is malformed. Sign the code again."};
}

/// Reads expressions; what is malformed makes failed() true.
class ExpressionReader {
public:
    explicit ExpressionReader(base::Bytes bytes) : reader_(bytes) {}

    [[nodiscard]] bool failed() const { return failed_ || reader_.failed(); }
    [[nodiscard]] bool empty() const { return reader_.empty(); }

    Requirement takeExpression() {
        const auto number = reader_.takeBig<std::uint32_t>();
        if (++expressions_ > mostExpressions || failed())
            return fail();
        const auto op = static_cast<Op>(number & ~flagsOfOp);
        const auto operands = operandsOf(op);
        if (!operands)
            return takeUnknown(number);
        Requirement requirement{.op = op};
        if (operands->slot)
            requirement.slot = static_cast<std::int32_t>(reader_.takeBig<std::uint32_t>());
        if (operands->text)
            requirement.text = takeData();
        if (operands->oid) {
            auto decoded = decodedOid(base::bytesOf(requirement.text));
            if (!decoded)
                return fail();
            requirement.text = *std::move(decoded);
        }
        if (op == Op::InfoEquals)
            requirement.match = {.kind = Match::Kind::Equal, .text = takeData()};
        else if (operands->match)
            requirement.match = takeMatch();
        for (int operand = 0; operand < operands->expressions && !failed(); ++operand)
            requirement.operands.push_back(takeExpression());
        return requirement;
    }

private:
    Requirement fail() {
        failed_ = true;
        return {};
    }

    Requirement takeUnknown(std::uint32_t number) {
        if ((number & (unknownMeansFalse | unknownIsSkipped)) == 0)
            return fail();
        (void)takeData();
        return (number & unknownMeansFalse) != 0 ? Requirement{} : takeExpression();
    }

    std::string takeData() {
        const auto size = reader_.takeBig<std::uint32_t>();
        std::string data(base::textOf(reader_.take(size)));
        for (const std::uint8_t byte : reader_.take(-static_cast<std::size_t>(size) % 4))
            failed_ = failed_ || byte != 0;
        return data;
    }

    Match takeMatch() {
        const auto number = reader_.takeBig<std::uint32_t>();
        Match match{.kind = static_cast<Match::Kind>(number)};
        if (match.kind > Match::Kind::Absent)
            failed_ = true;
        else if (isDate(match.kind))
            match.seconds = static_cast<std::int64_t>(reader_.takeBig<std::uint64_t>());
        else if (match.kind != Match::Kind::Exists && match.kind != Match::Kind::Absent)
            match.text = takeData();
        return match;
    }

    base::ByteReader reader_;
    int expressions_ = 0;
    bool failed_ = false;
};

base::OwnedBytes withHeader(std::uint32_t magic, const base::ByteBuffer& content) {
    base::ByteBuffer blob;
    base::appendBig(blob, magic);
    base::appendBig(blob, static_cast<std::uint32_t>(8 + content.size()));
    blob.append(content.bytes());
    return {blob.bytes().begin(), blob.bytes().end()};
}

/// The content behind a header that is right; none otherwise.
std::optional<base::Bytes> contentOf(base::Bytes blob, std::uint32_t magic) {
    base::ByteReader reader(blob);
    if (reader.takeBig<std::uint32_t>() != magic ||
        reader.takeBig<std::uint32_t>() != blob.size() || reader.failed())
        return std::nullopt;
    return reader.rest();
}

Requirement joined(Op op, std::vector<Requirement> parts) {
    Requirement whole = std::move(parts.back());
    parts.pop_back();
    for (; !parts.empty(); parts.pop_back()) {
        Requirement outer{.op = op};
        outer.operands.push_back(std::move(parts.back()));
        outer.operands.push_back(std::move(whole));
        whole = std::move(outer);
    }
    return whole;
}

} // namespace

base::OwnedBytes requirementBlob(const Requirement& requirement) {
    base::ByteBuffer content;
    base::appendBig(content, expressionForm);
    putExpression(content, requirement);
    return withHeader(requirementMagic, content);
}

base::OwnedBytes requirementSetBlob(const RequirementSet& set) {
    base::ByteBuffer content;
    base::appendBig(content, static_cast<std::uint32_t>(set.size()));
    base::ByteBuffer blobs;
    const std::size_t start = 12 + 8 * set.size();
    for (const auto& [kind, requirement] : set) {
        base::appendBig(content, static_cast<std::uint32_t>(kind));
        base::appendBig(content, static_cast<std::uint32_t>(start + blobs.size()));
        blobs.append(requirementBlob(requirement));
    }
    content.append(blobs.bytes());
    return withHeader(requirementSetMagic, content);
}

base::Result<Requirement> readRequirement(base::Bytes blob) {
    const auto content = contentOf(blob, requirementMagic);
    if (!content || content->size() < 4 ||
        base::ByteReader(*content).takeBig<std::uint32_t>() != expressionForm)
        return damaged();
    ExpressionReader reader(content->subspan(4));
    Requirement requirement = reader.takeExpression();
    if (reader.failed() || !reader.empty())
        return damaged();
    return requirement;
}

base::Result<RequirementSet> readRequirementSet(base::Bytes blob) {
    const auto content = contentOf(blob, requirementSetMagic);
    if (!content)
        return damaged();
    base::ByteReader index(*content);
    const auto count = index.takeBig<std::uint32_t>();
    if (count > index.size() / 8)
        return damaged();
    RequirementSet set;
    for (std::uint32_t entry = 0; entry < count; ++entry) {
        const auto kind = index.takeBig<std::uint32_t>();
        const auto offset = index.takeBig<std::uint32_t>();
        if (offset < 12 || offset > blob.size() || blob.size() - offset < 8)
            return damaged();
        base::ByteReader header(blob.subspan(offset + 4));
        const auto size = header.takeBig<std::uint32_t>();
        if (size > blob.size() - offset)
            return damaged();
        auto requirement = readRequirement(blob.subspan(offset, size));
        if (!requirement)
            return requirement.error();
        set.emplace(static_cast<RequirementKind>(kind), *std::move(requirement));
    }
    return set;
}

Requirement allOf(std::vector<Requirement> parts) {
    return joined(Op::And, std::move(parts));
}

Requirement anyOf(std::vector<Requirement> parts) {
    return joined(Op::Or, std::move(parts));
}

} // namespace sign
