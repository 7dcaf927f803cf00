#include "core/platform/FileType.h"

#include <filesystem>
#include <memory>
#include <type_traits>

#include <CoreFoundation/CoreFoundation.h>

namespace {

struct Release {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};
template <typename Ref>
using Owned = std::unique_ptr<std::remove_pointer_t<Ref>, Release>;

/// What the system says of `url` under `key`; null if it says nothing.
template <typename Ref>
Owned<Ref> property(CFURLRef url, CFStringRef key) {
    Ref value = nullptr;
    CFURLCopyResourcePropertyForKey(url, key, &value, nullptr);
    return Owned<Ref>(value);
}

bool isPackage(CFURLRef url) {
    const auto value = property<CFBooleanRef>(url, kCFURLIsPackageKey);
    return value && CFBooleanGetValue(value.get());
}

} // namespace

std::optional<FileType> typeOfFile(const std::string& path) {
    // The system would answer for a link itself.
    std::error_code error;
    const std::string target = std::filesystem::canonical(path, error).string();
    const bool isFolder = !error && std::filesystem::is_directory(target, error);
    if (error)
        return std::nullopt;
    const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
        nullptr, reinterpret_cast<const UInt8*>(target.data()), static_cast<CFIndex>(target.size()),
        isFolder));
    const auto type =
        url ? property<CFStringRef>(url.get(), kCFURLTypeIdentifierKey) : Owned<CFStringRef>();
    if (!type)
        return std::nullopt;
    if (!isFolder)
        return FileType::Data;
    if (CFEqual(type.get(), CFSTR("com.apple.application-bundle")))
        return FileType::ApplicationBundle;
    if (isPackage(url.get()))
        return FileType::Package;
    if (CFEqual(type.get(), CFSTR("public.volume")))
        return FileType::Volume;
    return CFEqual(type.get(), CFSTR("public.folder")) ? FileType::Folder : FileType::Data;
}
