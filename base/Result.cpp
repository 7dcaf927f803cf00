#include "base/Result.h"

#include <cerrno>

namespace base {
namespace {

struct Advice {
    ErrorKind kind;
    std::string_view remedy;
};

Advice adviceFor(int code) {
    switch (code) {
    case ENOENT:
    case ENOTDIR:
        return {ErrorKind::NotFound, "Check the path."};
    case EACCES:
    case EPERM:
        return {ErrorKind::Denied, "Check the permissions or choose another folder."};
    case EROFS:
        return {ErrorKind::Denied, "Choose a folder that can be written to."};
    case ENOSPC:
    case EDQUOT:
        return {ErrorKind::NoSpace, "Free some space and try again."};
    case ENAMETOOLONG:
        return {ErrorKind::Usage, "Shorten the path."};
    case EEXIST:
    case EISDIR:
        return {ErrorKind::Conflict, "Move away what is there and try again."};
    case EMFILE:
    case ENFILE:
        return {ErrorKind::System, "Raise the limit of open files or use fewer threads."};
    default:
        return {ErrorKind::System, "Check the disk and try again."};
    }
}

} // namespace

Error systemError(std::string_view action, std::string_view path, int code) {
    const Advice advice = adviceFor(code);
    std::string sentence("Cannot ");
    sentence.append(action).append(" ").append(path).append(": ");
    sentence.append(std::generic_category().message(code)).append(". ").append(advice.remedy);
    return {advice.kind, std::move(sentence)};
}

} // namespace base
