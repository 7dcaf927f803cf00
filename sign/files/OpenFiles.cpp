#include "sign/files/OpenFiles.h"

#include <algorithm>

#include <sys/resource.h>

namespace sign {

std::size_t mostOpenObjects() {
    constexpr rlim_t each = 4;
    constexpr rlim_t others = 64;
    constexpr rlim_t enough = 1U << 16U;
    struct rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 64;
    if (limit.rlim_cur < std::min(limit.rlim_max, enough)) {
        limit.rlim_cur = std::min(limit.rlim_max, enough);
        (void)::setrlimit(RLIMIT_NOFILE, &limit);
        (void)::getrlimit(RLIMIT_NOFILE, &limit);
    }
    return limit.rlim_cur > others + each
               ? static_cast<std::size_t>((std::min(limit.rlim_cur, enough) - others) / each)
               : 1;
}

} // namespace sign
