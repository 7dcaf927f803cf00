#include "zip/Result.h"

#include <cerrno>
#include <system_error>

namespace zip {
namespace {

std::string_view remedy(int code) {
    switch (code) {
    case ENOENT:
    case ENOTDIR:
        return "Check the path.";
    case EACCES:
    case EPERM:
        return "Check the permissions or choose another folder.";
    case EROFS:
        return "Choose a folder that can be written to.";
    case ENOSPC:
    case EDQUOT:
        return "Free some space and try again.";
    case ENAMETOOLONG:
        return "Shorten the path.";
    case EMFILE:
    case ENFILE:
        return "Raise the limit of open files or use fewer threads.";
    default:
        return "Check the disk and try again.";
    }
}

} // namespace

Error systemError(std::string_view action, std::string_view path, int code) {
    std::string sentence("Cannot ");
    sentence.append(action).append(" ").append(path).append(": ");
    sentence.append(std::generic_category().message(code)).append(". ").append(remedy(code));
    return {std::move(sentence)};
}

} // namespace zip
