#include "zip/ExtendedAttributes.h"

#include <array>
#include <string_view>

#include <sys/types.h>
#include <sys/xattr.h>

namespace zip {
namespace {

ssize_t listAttributes(const char* path, char* names, std::size_t size) {
#ifdef __APPLE__
    return ::listxattr(path, names, size, XATTR_NOFOLLOW);
#else
    return ::llistxattr(path, names, size);
#endif
}

} // namespace

void addExtendedAttributes(const std::string& path, std::set<std::string>& names) {
    // The longest list that a system gives. Clearing it for each file would cost too much.
    std::array<char, std::size_t{1} << 16> list;
    const ssize_t size = listAttributes(path.c_str(), list.data(), list.size());
    for (std::string_view rest(list.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
         !rest.empty(); rest.remove_prefix(rest.find('\0') + 1)) {
        const std::string_view name = rest.substr(0, rest.find('\0'));
        if (!name.starts_with("security."))
            names.emplace(name);
    }
}

} // namespace zip
