#include "sign/signature/RequirementLexer.h"

#include "base/Number.h"

#include <algorithm>

namespace sign {
namespace {

bool isWordCharacter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_';
}

std::optional<std::string> bytesOfHex(std::string_view digits) {
    if (digits.size() % 2 != 0)
        return std::nullopt;
    std::string bytes;
    for (; !digits.empty(); digits.remove_prefix(2)) {
        const auto byte = base::numberIn<std::uint8_t>(digits.substr(0, 2), 0, 0xFF, 16);
        if (!byte)
            return std::nullopt;
        bytes += static_cast<char>(*byte);
    }
    return bytes;
}

} // namespace

std::optional<RequirementToken> RequirementLexer::next() {
    if (!skipBlanks())
        return std::nullopt;
    if (rest_.empty())
        return RequirementToken{};
    if (rest_[0] == '"')
        return quoted(RequirementToken::Kind::Quoted);
    if (rest_.starts_with("H\"")) {
        rest_.remove_prefix(1);
        return quoted(RequirementToken::Kind::Hash);
    }
    if (isWordCharacter(rest_[0]))
        return word();
    for (const std::string_view sign : {"=>", "<=", ">="}) {
        if (rest_.starts_with(sign))
            return take(RequirementToken::Kind::Sign, 2);
    }
    return std::string_view("()[]=<>~!*-").find(rest_[0]) == std::string_view::npos
               ? std::nullopt
               : std::optional(take(RequirementToken::Kind::Sign, 1));
}

/// Comments are blanks too. False if one does not end.
bool RequirementLexer::skipBlanks() {
    for (;;) {
        const std::size_t blanks = rest_.find_first_not_of(" \t\n\v\f\r");
        rest_.remove_prefix(std::min(blanks, rest_.size()));
        if (rest_.starts_with("/*")) {
            const std::size_t end = rest_.find("*/", 2);
            if (end == std::string_view::npos)
                return false;
            rest_.remove_prefix(end + 2);
        } else if (rest_.starts_with("//") || rest_.starts_with('#')) {
            rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size()));
        } else {
            return true;
        }
    }
}

RequirementToken RequirementLexer::take(RequirementToken::Kind kind, std::size_t size) {
    RequirementToken token{kind, std::string(rest_.substr(0, size))};
    rest_.remove_prefix(size);
    return token;
}

std::optional<RequirementToken> RequirementLexer::word() {
    std::size_t size = 0;
    while (size < rest_.size() && isWordCharacter(rest_[size]))
        ++size;
    RequirementToken token = take(RequirementToken::Kind::Word, size);
    if (!token.text.starts_with("0x"))
        return token;
    auto bytes = bytesOfHex(std::string_view(token.text).substr(2));
    if (!bytes)
        return std::nullopt;
    return RequirementToken{RequirementToken::Kind::Bytes, *std::move(bytes)};
}

std::optional<RequirementToken> RequirementLexer::quoted(RequirementToken::Kind kind) {
    RequirementToken token{kind};
    std::size_t at = 1;
    for (; at < rest_.size() && rest_[at] != '"'; ++at) {
        if (rest_[at] == '\\' && at + 1 < rest_.size())
            ++at;
        token.text += rest_[at];
    }
    if (at >= rest_.size())
        return std::nullopt;
    rest_.remove_prefix(at + 1);
    if (kind != RequirementToken::Kind::Hash)
        return token;
    auto bytes = bytesOfHex(token.text);
    if (!bytes)
        return std::nullopt;
    token.text = *std::move(bytes);
    return token;
}

} // namespace sign
