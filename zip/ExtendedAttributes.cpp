#include "zip/ExtendedAttributes.h"

#include <array>
#include <cerrno>
#include <string_view>
#include <vector>

#include <sys/types.h>
#include <sys/xattr.h>

namespace zip {
namespace {

void addNames(std::string_view list, std::set<std::string>& names) {
    for (; !list.empty(); list.remove_prefix(list.find('\0') + 1)) {
        const std::string_view name = list.substr(0, list.find('\0'));
        if (!name.starts_with("security."))
            names.emplace(name);
    }
}

/// `ask` fills in the list of names, each with a zero behind it, and gives the length of the list.
template <typename Ask>
void addListed(const Ask& ask, std::set<std::string>& names) {
    // Most files have none or a few. The system makes as much room as a call offers, so offer
    // little.
    std::array<char, 256> few;
    const ssize_t size = ask(few.data(), few.size());
    if (size >= 0)
        return addNames({few.data(), static_cast<std::size_t>(size)}, names);
    if (errno != ERANGE)
        return;
    constexpr std::size_t longestList = std::size_t{1} << 16;
    std::vector<char> many(longestList);
    if (const ssize_t manySize = ask(many.data(), many.size()); manySize > 0)
        addNames({many.data(), static_cast<std::size_t>(manySize)}, names);
}

} // namespace

void addExtendedAttributes(int descriptor, std::set<std::string>& names) {
    const auto ask = [&](char* list, std::size_t size) {
#ifdef __APPLE__
        return ::flistxattr(descriptor, list, size, 0);
#else
        return ::flistxattr(descriptor, list, size);
#endif
    };
    addListed(ask, names);
}

void addExtendedAttributesOfLink(const std::string& path, std::set<std::string>& names) {
    const auto ask = [&](char* list, std::size_t size) {
#ifdef __APPLE__
        return ::listxattr(path.c_str(), list, size, XATTR_NOFOLLOW);
#else
        return ::llistxattr(path.c_str(), list, size);
#endif
    };
    addListed(ask, names);
}

} // namespace zip
