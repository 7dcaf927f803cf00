#pragma once

namespace base {

/// The first call of every program. Opens /dev/null for each standard stream that is not open;
/// otherwise the next file would get its number, and with it what we print. Ignores SIGPIPE and
/// SIGXFSZ, so that a reader that goes away and a limit on file sizes are errors like others.
void startProgram();

} // namespace base
