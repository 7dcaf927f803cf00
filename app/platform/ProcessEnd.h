#pragma once

/// The last call in main(), on the event loop's exit status. Jobs that run, and those handed to
/// GlobalQueue, get half a second to end (a reveal thus gets its command started); no job is begun
/// after that. When all have ended, returns `status`: destroying what they used is safe. Otherwise
/// ends the process on the spot, so that no destructor takes something away from a running job.
[[nodiscard]] int endJobs(int status);
