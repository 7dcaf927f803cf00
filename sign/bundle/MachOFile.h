#pragma once

#include <string>

namespace sign {

/// Whether the file is a Mach-O file of a type that has signatures, or a universal file with one.
/// Object files, archives and debug symbols are not. False if it cannot be read. Any thread.
[[nodiscard]] bool isSignableMachO(const std::string& path);

} // namespace sign
