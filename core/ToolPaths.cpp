#include "core/ToolPaths.h"

#include "core/Path.h"

ToolPaths ToolPaths::of(const MainBundle& bundle) {
    ToolPaths tools;
    const auto useOwn = [&](std::string& tool, const char* own) {
        if (!fileExists(tool))
            tool = bundle.pathForAuxiliaryExecutable(own).value_or(tool);
    };
    useOwn(tools.security, "kelpmoray-security");
    useOwn(tools.codesign, "kelpmoray-codesign");
    return tools;
}
