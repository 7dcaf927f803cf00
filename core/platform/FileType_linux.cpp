#include "core/Path.h"
#include "core/PropertyList.h"
#include "core/Text.h"
#include "core/platform/FileType.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

constexpr std::array packageExtensions = {
    "appex", "bundle", "component", "dsym",     "framework",   "kext",      "mdimporter",
    "mpkg",  "pkg",    "plugin",    "prefpane", "rtfd",        "saver",     "service",
    "vst",   "vst3",   "wdgt",      "workflow", "xcworkspace", "xcodeproj", "xpc"};

/// Whether the mount of that number shows the root of its file system, rather than a folder in it
/// that is bound to another place, as containers do (proc_pid_mountinfo(5)).
bool showsRootOfFileSystem(std::uint64_t mount) {
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);) {
        const std::vector<std::string_view> fields = split(line, " ");
        if (fields.front() == std::to_string(mount))
            return fields.size() > 3 && fields[3] == "/";
    }
    return true;
}

bool isVolume(const std::string& path) {
    std::error_code error;
    if (std::filesystem::equivalent(path, "/", error))
        return true;
    // Neither device nor inode tells a folder that is bound to another place; the kernel does.
    struct statx status {};
    return statx(AT_FDCWD, path.c_str(), 0, STATX_TYPE | STATX_MNT_ID, &status) == 0 &&
           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0 &&
           showsRootOfFileSystem(status.stx_mnt_id);
}

/// Whether the package laid out around `infoFile` is an application whose executable is there.
bool isApplication(const std::string& infoFile, const std::string& executables,
                   const std::string& defaultName) {
    constexpr std::uintmax_t longestInfo = 16U << 20U;
    std::error_code error;
    if (!isRegularFile(infoFile) || std::filesystem::file_size(infoFile, error) > longestInfo)
        return false;
    std::ifstream file(infoFile, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)),
                            std::istreambuf_iterator<char>());
    const auto info = propertyListStrings(bytes);
    if (!info)
        return false;
    const auto type = info->find("CFBundlePackageType");
    const auto name = info->find("CFBundleExecutable");
    return (type == info->end() || type->second == "APPL") &&
           isRegularFile(appendingPathComponent(executables,
                                                name == info->end() ? defaultName : name->second));
}

bool isWellFormedApplication(const std::string& package) {
    const std::string name = lastPathComponent(package);
    const std::string stem = name.substr(0, name.rfind('.'));
    const std::string contents = appendingPathComponent(package, "Contents");
    return isApplication(contents + "/Info.plist", contents + "/MacOS", stem) ||
           isApplication(appendingPathComponent(package, "Info.plist"), package, stem) ||
           isRegularFile(appendingPathComponent(package, "Resources/Info-gnustep.plist")) ||
           isRegularFile(appendingPathComponent(package, stem));
}

} // namespace

std::optional<FileType> typeOfFile(const std::string& path) {
    if (!fileExists(path))
        return std::nullopt;
    if (!isDirectory(path))
        return FileType::Data;
    if (isVolume(path))
        return FileType::Volume;
    if (hasAppExtension(path))
        return isWellFormedApplication(path) ? FileType::ApplicationBundle : FileType::Package;
    const std::string extension = lowercased(pathExtension(path));
    return std::ranges::find(packageExtensions, extension) != packageExtensions.end()
               ? FileType::Package
               : FileType::Folder;
}
