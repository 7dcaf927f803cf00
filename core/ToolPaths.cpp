#include "core/ToolPaths.h"

#include "core/Path.h"

namespace {

constexpr const char* ownSecurity = "kelpmoray-security";

} // namespace

ToolPaths ToolPaths::of(const MainBundle& bundle) {
    ToolPaths tools;
    const auto useOwn = [&](std::string& tool, const char* own) {
        if (!fileExists(tool))
            tool = bundle.pathForAuxiliaryExecutable(own).value_or(tool);
    };
    useOwn(tools.security, ownSecurity);
    useOwn(tools.codesign, "kelpmoray-codesign");
    return tools;
}

bool ToolPaths::hasOwnSecurity() const {
    return lastPathComponent(security) == ownSecurity && fileExists(security);
}
