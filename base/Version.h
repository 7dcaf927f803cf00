#pragma once

namespace base {

/// The version of this build, such as "1.2.3". Any thread.
[[nodiscard]] const char* version();

} // namespace base
