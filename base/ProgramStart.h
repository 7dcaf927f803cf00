#pragma once

namespace base {

/// What every program does first. Opens /dev/null for each standard stream that the process was
/// started without: else the next file would take its number, and get what we print. Ignores
/// SIGPIPE and SIGXFSZ: a reader that goes away and a limit on the size of files are errors like
/// others, and must not end the process in the middle of a file.
void startProgram();

} // namespace base
