#include "sign/bundle/SealScope.h"

#include "sign/bundle/FileTree.h"

#include <vector>

namespace sign {

namespace {

/// An absolute path without "." and "..", by its text alone: the system's folders are not there on
/// other systems.
std::string normalized(std::string_view path) {
    std::vector<std::string_view> components;
    while (!path.empty()) {
        const std::string_view component = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), component.size() + 1));
        if (component == ".." && !components.empty())
            components.pop_back();
        else if (!component.empty() && component != "." && component != "..")
            components.push_back(component);
    }
    std::string result;
    for (const std::string_view component : components)
        (result += '/') += component;
    return result;
}

} // namespace

bool leadsOn(const std::string& path, const std::string& target) {
    if (!target.starts_with('/'))
        return realPath(path).has_value();
    const std::string absolute = normalized(target);
    return absolute.starts_with("/System/") || absolute.starts_with("/Library/");
}

bool leadsToSealed(const std::string& path, const std::string& target, const SealScope& scope) {
    if (target.starts_with('/') || !leadsOn(path, target))
        return leadsOn(path, target);
    const std::optional<std::string> resolved = realPath(path);
    if (!resolved)
        return false;
    for (const SealScope* within = &scope; within; within = within->outer.get()) {
        const std::string inside = within->realCodeRoot + "/";
        if (resolved->starts_with(inside))
            return within->rules.includes(std::string_view(*resolved).substr(inside.size()));
    }
    return false;
}

} // namespace sign
