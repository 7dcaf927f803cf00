#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <variant>
#include <vector>

namespace sign {

/// Why a pattern was not compiled.
enum class PatternFault {
    Malformed, ///< no expression, by the standard and by glibc
    TooLarge,  ///< takes too many states, with its counted repetitions written out
    NotTaken,  ///< has a reference back, an escape that systems read differently, or a byte 0
};

/// A POSIX extended regular expression (Base Definitions, 9.4) in the C locale, on bytes, of which
/// "." stands for any. What the standard leaves open is read as glibc does, or not taken. Matching
/// takes time linear in the length of the path times size(), whatever the pattern. Any thread, and
/// several may use one pattern at once.
class PathPattern {
public:
    /// With at most `mostStates` states; takes time linear in the length of `text` times as many.
    [[nodiscard]] static std::variant<PathPattern, PatternFault> compile(std::string_view text,
                                                                         std::size_t mostStates);

    /// Whether the expression matches anywhere in `path`.
    [[nodiscard]] bool matches(std::string_view path) const;

    /// How many states it takes: about one for each byte and operator, counted repetitions written
    /// out.
    [[nodiscard]] std::size_t size() const { return states_.size(); }

private:
    class Compiler;
    class Search;
    using Bytes = std::bitset<256>;

    enum class Step : std::uint8_t {
        Take,    ///< takes a byte of the set `value`
        Jump,    ///< goes on `value` states further
        Split,   ///< goes on with the next state, and `value` states further
        AtStart, ///< goes on with the next state where the path starts
        AtEnd,   ///< goes on with the next state where the path ends
    };

    /// States refer to each other by distance, so that a stretch of them can be moved and copied.
    struct State {
        Step step = Step::Take;
        std::ptrdiff_t value = 0;
    };

    /// Null if it takes none.
    [[nodiscard]] const Bytes* takenBy(std::size_t state) const;

    std::vector<State> states_; ///< what comes after the last one is a match
    std::vector<Bytes> sets_;
    Bytes leading_; ///< with which a match may start that does not start where the path does
};

} // namespace sign
