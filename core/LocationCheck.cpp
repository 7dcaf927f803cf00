#include "core/LocationCheck.h"

#include "core/Format.h"
#include "core/LocationExpansion.h"
#include "core/platform/FileType.h"

#include <cerrno>

#include <unistd.h>

base::Outcome checkLocation(const std::string& path, const std::string& asGiven) {
    using enum base::ErrorKind;
    const auto refuse = [&](base::ErrorKind kind, const char* reason) {
        return base::Error{kind, formatted(reason, asGiven)};
    };
    if (access(path.c_str(), F_OK) != 0)
        return errno == EACCES
                   ? refuse(Denied,
                            "%@: it cannot be reached. Check the permissions on the way there.")
                   : refuse(NotFound, "%@: nothing is there. Check the path.");
    const std::optional<FileType> type = typeOfFile(path);
    if (type == FileType::Data)
        return refuse(Unsupported, "%@: a file is there. Give a folder or an application package "
                                   "(Name.app).");
    if (access(path.c_str(), R_OK | X_OK) != 0)
        return refuse(Denied, "%@: it cannot be read. Check its permissions.");
    if (type == FileType::Volume)
        return refuse(Unsupported, "%@: this is a whole volume. Give a folder in it.");
    if (!validUrlToAdd(path))
        return refuse(Damaged, "%@: this package is not a complete application (its Info.plist or "
                               "executable is missing). Build it again.");
    return {};
}
