#pragma once

#include <set>
#include <string>

namespace zip {

/// Adds the names of the extended attributes and access control lists of what `path` names, itself
/// if it is a link; those that are the system's own, such as labels, are left out. Adds none if
/// they cannot be read.
void addExtendedAttributes(const std::string& path, std::set<std::string>& names);

} // namespace zip
