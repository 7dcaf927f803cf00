#pragma once

namespace zip {

/// Does what the program `kelpmoray-zip` is asked for on its command line. Returns its exit status:
/// 0 for done, 1 for failed, 2 for a command line that makes no sense.
[[nodiscard]] int runCommandLine(int argumentCount, char** arguments);

} // namespace zip
