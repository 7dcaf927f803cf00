#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace sign {

/// A token of Apple's code requirement language.
struct RequirementToken {
    enum class Kind { End, Word, Quoted, Hash, Bytes, Sign };
    Kind kind = Kind::End;
    std::string text{}; ///< of a quoted text, a hash and bytes: what they stand for
};

/// Cuts a text, which must outlive it, into tokens.
class RequirementLexer {
public:
    explicit RequirementLexer(std::string_view text) : rest_(text) {}

    /// The next token, of kind End behind the last one; absent if it is not understood.
    [[nodiscard]] std::optional<RequirementToken> next();
    /// What has not been cut yet.
    [[nodiscard]] std::string_view rest() const { return rest_; }

private:
    [[nodiscard]] bool skipBlanks();
    [[nodiscard]] RequirementToken take(RequirementToken::Kind kind, std::size_t size);
    [[nodiscard]] std::optional<RequirementToken> word();
    [[nodiscard]] std::optional<RequirementToken> quoted(RequirementToken::Kind kind);

    std::string_view rest_;
};

} // namespace sign
