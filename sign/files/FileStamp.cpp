#include "sign/files/FileStamp.h"

#include "base/Printable.h"

namespace sign {

FileStamp FileStamp::of(const struct stat& status) {
#ifdef __APPLE__
    const auto& modified = status.st_mtimespec;
    const auto& changed = status.st_ctimespec;
#else
    const auto& modified = status.st_mtim;
    const auto& changed = status.st_ctim;
#endif
    constexpr std::int64_t second = 1'000'000'000;
    return {static_cast<std::uint64_t>(status.st_size), modified.tv_sec * second + modified.tv_nsec,
            changed.tv_sec * second + changed.tv_nsec, status.st_ino};
}

base::Error changedWhileRead(const std::string& path) {
    return {base::ErrorKind::Changed,
            "\"" + base::printable(path) +
                "\" changed while it was read. Try again when nothing writes to it."};
}

base::Error changedMeanwhile(const std::string& path, std::string_view what) {
    return {base::ErrorKind::Changed,
            "\"" + base::printable(path) + "\" " + std::string(what) +
                " meanwhile. Try again when nothing writes to the package."};
}

} // namespace sign
