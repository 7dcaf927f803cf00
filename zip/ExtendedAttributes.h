#pragma once

#include <set>
#include <string>

namespace zip {

/// Adds the names of the extended attributes and access control lists that the file, folder or
/// link `path` has. Leaves out `security.*`, which is the system's. Adds none if they cannot be
/// read.
void addExtendedAttributes(const std::string& path, std::set<std::string>& names);

} // namespace zip
