#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace zip {

/// A failure as full sentences: what failed, on which path, and what to do about it.
struct Error {
    std::string sentence;
};

/// The failure of a system call: "Cannot ACTION PATH: REASON. REMEDY". `code` is the value of
/// errno.
[[nodiscard]] Error systemError(std::string_view action, std::string_view path, int code);

/// A value, or the reason why there is none.
template <typename T = std::monostate>
class [[nodiscard]] Result {
public:
    Result() = default;
    Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

    explicit operator bool() const { return state_.index() == 0; }
    [[nodiscard]] T& operator*() { return std::get<0>(state_); }
    [[nodiscard]] T* operator->() { return &std::get<0>(state_); }
    [[nodiscard]] const Error& error() const { return std::get<1>(state_); }

private:
    std::variant<T, Error> state_;
};

/// Success without a value, or the reason of failure.
using Outcome = Result<>;

} // namespace zip
