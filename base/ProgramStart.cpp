#include "base/ProgramStart.h"

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace base {

void startProgram() {
    int lowest = 0;
    while (lowest >= 0 && lowest <= STDERR_FILENO)
        lowest = ::open("/dev/null", O_RDONLY);
    if (lowest >= 0)
        ::close(lowest);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

} // namespace base
