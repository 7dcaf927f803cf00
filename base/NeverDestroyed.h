#pragma once

#include <utility>

namespace base {

/// Makes a value that is never destroyed, for what threads may still use while the process ends. A
/// static reference must hold it, else it is a leak.
template <typename Value, typename... Arguments>
[[nodiscard]] Value& neverDestroyed(Arguments&&... arguments) {
    return *new Value(std::forward<Arguments>(arguments)...);
}

} // namespace base
