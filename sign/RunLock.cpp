#include "sign/RunLock.h"

#include "base/Leftovers.h"
#include "base/Printable.h"
#include "sign/bundle/Bundle.h"
#include "sign/files/FileTree.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>

namespace sign {
namespace {

/// False if another process has a lock that this one must wait for.
bool lock(int descriptor, int how) {
    return base::retried([&] { return ::flock(descriptor, how | LOCK_NB); }) == 0 ||
           errno != EWOULDBLOCK;
}

base::Error taken(const std::string& path) {
    return {base::ErrorKind::Conflict,
            "Another process signs \"" + base::printable(path) +
                "\" or code in it. Wait until it has ended and try again."};
}

} // namespace

base::Result<RunLock> RunLock::take(const std::string& path) {
    RunLock taking;
    // What cannot be found or opened is told of by who signs it.
    const auto real =
        realPath(isFolder(path) ? path : bundleOfExecutable(path).value_or(path)).value_or("");
    for (std::size_t slash = real.find('/', 1); slash != std::string::npos;
         slash = real.find('/', slash + 1)) {
        // A folder that is no bundle may be locked for other purposes.
        const std::string around = real.substr(0, slash);
        if (openBundle(around))
            if (auto locked = taking.lockFolder(around, LOCK_SH); !locked)
                return locked.error();
    }
    auto locked = isFolder(real) ? taking.lockFolder(real, LOCK_EX) : taking.lockFile(real);
    if (!locked)
        return locked.error();
    return taking;
}

base::Outcome RunLock::lockFolder(const std::string& path, int how) {
    auto folder = base::FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY);
    if (!folder.open())
        return {};
    if (!lock(folder.get(), how))
        return taken(path);
    locks_.push_back(std::move(folder));
    return {};
}

base::Outcome RunLock::lockFile(const std::string& path) {
    for (;;) {
        auto file = base::FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_NONBLOCK);
        if (!file.open())
            return {};
        if (!lock(file.get(), LOCK_EX))
            return taken(path);
        // Another process may have put its new file in the place of this one.
        if (base::isNameOf(file.get(), path)) {
            locks_.push_back(std::move(file));
            return {};
        }
    }
}

} // namespace sign
