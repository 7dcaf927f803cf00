#include "zip/TemporaryFile.h"

#include "zip/RemovalOnSignal.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

namespace zip {
namespace {

namespace fs = std::filesystem;

/// Whether the text is the id of a process that has ended. Our own counts too: a file of that name
/// is from an earlier process with the same id.
bool isEndedProcess(std::string_view text) {
    pid_t process = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), process);
    if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || process <= 0)
        return false;
    return process == ::getpid() || (::kill(process, 0) != 0 && errno == ESRCH);
}

void removeLeftovers(const fs::path& folder, const std::string& prefix) {
    std::error_code code;
    for (fs::directory_iterator file(folder, code), end; !code && file != end;
         file.increment(code)) {
        const std::string name = file->path().filename();
        if (name.starts_with(prefix) &&
            isEndedProcess(std::string_view(name).substr(prefix.size())))
            ::unlink(file->path().c_str());
    }
}

} // namespace

Result<TemporaryFile> TemporaryFile::createFor(const std::string& output) {
    const fs::path path(output);
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::string prefix(".");
    prefix.append(path.filename().string()).append(".kelpmoray-");
    removeLeftovers(folder, prefix);

    TemporaryFile file(output, folder / (prefix + std::to_string(::getpid())));
    if (!removeOnSignal(file.path_))
        return systemError("create", file.path_, ENAMETOOLONG);
    file.opened_ = FileDescriptor::openAt(AT_FDCWD, file.path_.c_str(),
                                          O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
    if (!file.opened_.open())
        return systemError("create", file.path_, errno);
    return file;
}

TemporaryFile::~TemporaryFile() {
    if (opened_.open())
        ::unlink(path_.c_str());
}

Outcome TemporaryFile::commit() {
    if (::fsync(opened_.get()) != 0)
        return systemError("write", path_, errno);
    if (std::rename(path_.c_str(), output_.c_str()) != 0)
        return systemError("replace", output_, errno);
    opened_ = FileDescriptor();
    return {};
}

} // namespace zip
