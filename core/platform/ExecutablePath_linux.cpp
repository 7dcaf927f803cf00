#include "core/platform/ExecutablePath.h"

#include <filesystem>

std::string currentExecutablePath() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).string();
}
