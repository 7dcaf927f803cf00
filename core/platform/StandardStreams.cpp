#include "core/platform/StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

void occupyStandardStreams() {
    int lowest = 0;
    while (lowest >= 0 && lowest <= STDERR_FILENO)
        lowest = open("/dev/null", O_RDONLY);
    if (lowest >= 0)
        close(lowest);
}
