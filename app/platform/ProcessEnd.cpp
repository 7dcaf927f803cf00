#include "app/platform/ProcessEnd.h"

#include "app/platform/JobQueue.h"

#include <cstdio>
#include <cstdlib>

int endJobs(int status) {
    if (JobQueue::endAll(std::chrono::milliseconds(500)))
        return status;
    // Not all streams: the one that a job is reading from is locked until its script ends.
    std::fflush(stdout);
    std::fflush(stderr);
    std::_Exit(status);
}
