#pragma once

#include "base/Result.h"

#include <string>

namespace sign {

/// Whether the file is a Mach-O file of a type that has signatures, or a universal file with one.
/// Object files, archives and debug symbols are not, nor are links and what is not there. Any
/// thread.
[[nodiscard]] base::Result<bool> isSignableMachO(const std::string& path);

} // namespace sign
