#include "sign/bundle/SealScope.h"

#include "sign/files/FileTree.h"

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

/// Whether a link leads to anything at all, or with an absolute path into the system.
bool leadsOn(const std::string& path, const std::string& target) {
    if (!target.starts_with('/'))
        return realPath(path).has_value();
    const std::string absolute = normalized(target);
    return absolute.starts_with("/System/") || absolute.starts_with("/Library/");
}

} // namespace

std::shared_ptr<const SealScope> scopeAround(const std::string& path) {
    for (std::string folder = path.substr(0, path.rfind('/')); !folder.empty();
         folder.erase(folder.rfind('/'))) {
        const auto bundle = openBundle(folder);
        const auto root = bundle ? realPath(bundle->codeRoot) : std::nullopt;
        if (!root || !path.starts_with(*root + "/"))
            continue;
        auto rules = SealRules::read(SealRules::standard(bundle->form), *bundle, folder);
        if (rules)
            return std::make_shared<SealScope>(
                SealScope{*root, std::move(*rules), scopeAround(folder)});
    }
    return nullptr;
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
