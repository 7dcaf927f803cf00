#pragma once

#include <string>

namespace zip {

/// From now on SIGINT, SIGTERM and SIGHUP remove the file at `path` before they end the process;
/// one that is ignored stays so. A later call replaces the path. False if the path is too long. To
/// be called by one thread at a time.
[[nodiscard]] bool removeOnSignal(const std::string& path);

} // namespace zip
