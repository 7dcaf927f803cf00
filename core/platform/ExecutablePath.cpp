#include "core/platform/ExecutablePath.h"

#include <filesystem>
#ifdef __APPLE__
#include <cstdint>
#include <mach-o/dyld.h>
#endif

std::string currentExecutablePath() {
    std::error_code error;
#ifdef __APPLE__
    std::uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::string path(size, '\0');
    if (_NSGetExecutablePath(path.data(), &size) != 0)
        return {};
    return std::filesystem::canonical(path.c_str(), error).string();
#else
    return std::filesystem::read_symlink("/proc/self/exe", error).string();
#endif
}
