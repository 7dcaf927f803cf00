#pragma once

#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <variant>

// base/ is what all programs of this project use: results with errors, file descriptors, files that
// appear only when whole, bytes, UTF-8, threads, and the start of a program. It needs the standard
// library and POSIX only, and knows nothing of what the programs are for.
namespace base {

/// Why something failed, for callers that act on it. People read the sentence.
enum class ErrorKind {
    Usage,       ///< the caller or the user gave something that cannot be used
    NotFound,    ///< what is named is not there
    Denied,      ///< the permissions do not allow it
    Conflict,    ///< something else stands in the way, such as a signature or a folder
    NoSpace,     ///< the disk or the quota is full
    Damaged,     ///< the bytes are not what they claim to be
    Unsupported, ///< well-formed, but not handled here
    Changed,     ///< something changed while it was read
    Unavailable, ///< a server, a key or a token did not answer
    System,      ///< any other failure of the system
};

/// A failure as whole sentences: what failed, on which path, and what to do about it.
struct Error {
    ErrorKind kind;
    std::string sentence;
};

/// The failure of a system call: "Cannot ACTION PATH: REASON. REMEDY". `code` is the value of
/// errno. Any thread.
[[nodiscard]] Error systemError(std::string_view action, std::string_view path, int code);

/// A value, or the error why there is none. Only a result without a value type has a default.
template <typename T = std::monostate>
class [[nodiscard]] Result {
public:
    Result() requires std::is_same_v<T, std::monostate>
    = default;
    Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

    explicit operator bool() const { return state_.index() == 0; }
    [[nodiscard]] T& operator*() & { return std::get<0>(state_); }
    [[nodiscard]] const T& operator*() const& { return std::get<0>(state_); }
    [[nodiscard]] T&& operator*() && { return std::get<0>(std::move(state_)); }
    [[nodiscard]] T* operator->() { return &std::get<0>(state_); }
    [[nodiscard]] const T* operator->() const { return &std::get<0>(state_); }
    /// Only if there is no value.
    [[nodiscard]] const Error& error() const { return std::get<1>(state_); }

private:
    std::variant<T, Error> state_;
};

/// Success without a value, or the error.
using Outcome = Result<>;

} // namespace base
