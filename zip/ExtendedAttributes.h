#pragma once

#include <set>
#include <string>

namespace zip {

// Both add the names of the extended attributes and access control lists. They leave out
// `security.*`, which is the system's, and add none if they cannot be read. Any thread may call
// them.

/// Of the open file or folder.
void addExtendedAttributes(int descriptor, std::set<std::string>& names);

/// Of the symbolic link `path` itself, which cannot be opened.
void addExtendedAttributesOfLink(const std::string& path, std::set<std::string>& names);

} // namespace zip
