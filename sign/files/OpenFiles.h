#pragma once

#include <cstddef>

namespace sign {

/// How many code objects may be open at once, each with its old file, new file and new seal, if
/// not more connections to a server are open than objects may be. Raises the process's limit of
/// open files as far as it is allowed to.
[[nodiscard]] std::size_t mostOpenObjects();

} // namespace sign
