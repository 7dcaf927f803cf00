#pragma once

#include "base/FileDescriptor.h"
#include "base/Result.h"

#include <string>
#include <vector>

namespace sign {

/// Keeps other processes from signing the same code meanwhile. It is advisory, and released by the
/// system however the process ends. Where the file system knows no such locks, nothing is kept.
class RunLock {
public:
    /// For the code at `path`: a file, or the folder of a bundle. Conflict if another process signs
    /// it, code in it, or a bundle that it lies in. Any thread.
    [[nodiscard]] static base::Result<RunLock> take(const std::string& path);

private:
    [[nodiscard]] base::Outcome lockFolder(const std::string& path, int how);
    [[nodiscard]] base::Outcome lockFile(const std::string& path);

    std::vector<base::FileDescriptor> locks_;
};

} // namespace sign
