#pragma once

#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <limits>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <utility>

/// Text under construction that never grows past its limit (in bytes). Of what does not fit the
/// beginning and the end are kept. A writer of a long list asks full() and calls close() instead of
/// going on, so that describing it costs no more than the part of it that is kept.
class BoundedText {
public:
    explicit BoundedText(std::size_t limit = std::numeric_limits<std::size_t>::max())
        : limit_(limit) {}

    void append(std::string_view text);
    /// Starts a new line, indented by the current depth of nesting.
    void newLine();
    void nest() { ++depth_; }
    void unnest() { --depth_; }

    /// True once more has been appended than fits.
    [[nodiscard]] bool full() const { return full_; }
    /// Drops what is appended from now on. A text that is full ends in its mark then.
    void close() { closed_ = true; }
    [[nodiscard]] bool closed() const { return closed_; }
    /// The text; one that is full has a mark where something was dropped, and is still within the
    /// limit and never cut in the middle of a character. Empty then, if the limit has no room for
    /// the mark.
    [[nodiscard]] std::string take();

private:
    std::string text_;
    std::string overflow_; ///< the last bytes of what did not fit into text_
    std::size_t limit_;
    std::size_t depth_ = 0;
    bool full_ = false;
    bool closed_ = false;
};

template <typename T>
concept Text = std::convertible_to<const T&, std::string_view>;

/// The descriptions behind the directive %@. A type of our own takes part by declaring
/// `void describe(BoundedText&, const T&)` beside itself.
template <Text T>
void describe(BoundedText& out, const T& text) {
    out.append(text);
}
void describe(BoundedText& out, long long number);
template <std::integral T>
requires(!std::same_as<T, bool>) void describe(BoundedText& out, T number) {
    describe(out, static_cast<long long>(number));
}
template <std::same_as<bool> T>
void describe(BoundedText& out, T flag) {
    describe(out, flag ? 1LL : 0LL);
}

/// A string as an element of a list, set or record: quoted unless it is one plain word.
void describeQuoted(BoundedText& out, std::string_view text);
template <Text T>
void describeElement(BoundedText& out, const T& text) {
    describeQuoted(out, text);
}
template <typename T>
requires(!Text<T>) void describeElement(BoundedText& out, const T& element) {
    describe(out, element);
}

/// Prints "(null)" for an absent value.
template <typename T>
void describe(BoundedText& out, const std::optional<T>& value) {
    if (value)
        describe(out, *value);
    else
        out.append("(null)");
}

/// `(`, one element a line, `)`; with open and close given, other brackets.
template <std::ranges::input_range R>
void describeElements(BoundedText& out, const R& elements, std::string_view open,
                      std::string_view close) {
    out.append(open);
    out.nest();
    bool first = true;
    for (const auto& element : elements) {
        if (out.full()) {
            out.close();
            return;
        }
        if (!first)
            out.append(",");
        first = false;
        out.newLine();
        describeElement(out, element);
    }
    out.unnest();
    out.newLine();
    out.append(close);
}

template <std::ranges::input_range R>
requires(!Text<R>) void describe(BoundedText& out, const R& list) {
    describeElements(out, list, "(", ")");
}

/// `{`, `key = value;` a line in the order given, `}`.
void describeRecord(BoundedText& out,
                    std::initializer_list<std::pair<std::string_view, std::string_view>> entries);
